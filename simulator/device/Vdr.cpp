// A TV whose channel list a running VDR keeps. Its list is read by SVDRP, VDR's line protocol. A restored list is put
// in place as its file channels.conf while it is stopped: SVDRP can neither move nor remove a group, and VDR has
// forgotten edits that it acknowledged if it ends within seconds.
//
// IP television, and whatever else this program does not understand, belongs to VDR's own set: it is in no backup and
// stays at a restore. So does each channel that a timer needs.
#include <fcntl.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <thread>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Process.h"
#include "simulator/base/Text.h"
#include "simulator/device/ListKeeper.h"
#include "simulator/lineup/ChannelExport.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/Difference.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char PLACE[] = "vdr";
constexpr char CONFIG[] = "vdr-config";
constexpr char CACHE[] = "vdr-cache";
constexpr char STOP[] = "vdr-stop";
constexpr char START[] = "vdr-start";

constexpr char USUAL_CACHE[] = "/var/cache/vdr";
constexpr char CAM_DATA[] = "cam.data";

constexpr auto CONNECT_LIMIT = 5s;
constexpr auto ANSWER_LIMIT = 20s;
constexpr auto SAVE_LIMIT = 6s;       // until VDR's file has what its list has
constexpr auto COMMAND_LIMIT = 120s;  // for VDR to be stopped, or started
constexpr auto READY_LIMIT = 30s;     // for it to answer once it is started, or to answer no more
constexpr auto PAUSE = 100ms;

// Tries again until `isDone` or the time is over.
template <typename IsDone>
bool waitFor(Clock::duration limit, IsDone isDone) {
    const Clock::time_point end = Clock::now() + limit;
    while (!isDone()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(PAUSE);
    }
    return true;
}

// Returns false if the time was over first.
bool waitForDescriptor(const Descriptor& descriptor, short events, Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd place = {descriptor.get(), events, 0};
    return ::poll(&place, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) > 0;
}

// A connection to VDR. What arrives is bounded in lines, in bytes and in time.
class Svdrp {
public:
    // The address is HOST:PORT.
    explicit Svdrp(const std::string& address) : m_address(address) {
        connect();
        const Answer greeting = receive();
        if (greeting.code != 220) {
            throw Error(fmt::format("{}: VDR does not let this machine in: {}", m_address, greeting.lines.front()));
        }
    }
    ~Svdrp() {
        constexpr std::string_view QUIT = "QUIT\r\n";
        static_cast<void>(::send(m_socket.get(), QUIT.data(), QUIT.size(), MSG_NOSIGNAL));
    }
    Svdrp(const Svdrp&) = delete;
    Svdrp& operator=(const Svdrp&) = delete;

    struct Answer {
        int code = 0;
        std::vector<std::string> lines;  // any bytes
    };
    Answer ask(const std::string& command) {
        const std::string line = command + "\r\n";
        // An identity may come from a bundle.
        if (command.find_first_of("\r\n") != std::string::npos) {
            throw Error(fmt::format("{}: VDR cannot be asked for {}", m_address, inQuotes(command)));
        }
        if (::send(m_socket.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
            throw Error::ofSystem(m_address, "VDR has closed the connection");
        }
        return receive();
    }

    bool isLocal() const { return m_isLocal; }

private:
    void connect();
    Answer receive();
    std::string line(Clock::time_point end);

    std::string m_address;
    Descriptor m_socket;
    bool m_isLocal = false;
    std::string m_received;  // that no line was made of
};

bool isLoopback(const sockaddr* address) {
    if (address->sa_family == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    }
    return (ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24U) == IN_LOOPBACKNET;
}

void Svdrp::connect() {
    const std::size_t colon = m_address.rfind(':');
    const std::string port = m_address.substr(std::min(colon, m_address.size() - 1) + 1);
    if (colon == std::string::npos || toNumber<std::uint16_t>(port).value_or(0) == 0) {
        throw Error(fmt::format("{} is not HOST:PORT, such as localhost:6419", inQuotes(m_address)));
    }
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string host = m_address.substr(0, colon);
    if (const int code = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); code != 0) {
        throw Error(fmt::format("{}: {}; give the host that VDR runs on", m_address, ::gai_strerror(code)));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, &::freeaddrinfo);
    int error = 0;
    for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
        m_socket = Descriptor(::socket(each->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (::connect(m_socket.get(), each->ai_addr, each->ai_addrlen) == 0 || errno == EINPROGRESS) {
            error = waitForDescriptor(m_socket, POLLOUT, Clock::now() + CONNECT_LIMIT) ? 0 : ETIMEDOUT;
            socklen_t size = sizeof error;
            if (error == 0) {
                ::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
            }
        } else {
            error = errno;
        }
        if (error == 0) {
            m_isLocal = isLoopback(each->ai_addr);
            return;
        }
    }
    throw Error::ofSystem(m_address, "VDR cannot be reached; start it, or give the place of its SVDRP with --vdr",
                          error);
}

Svdrp::Answer Svdrp::receive() {
    const Clock::time_point end = Clock::now() + ANSWER_LIMIT;
    Answer answer;
    std::uint64_t bytes = 0;
    for (bool isLast = false; !isLast;) {
        const std::string text = line(end);
        const std::optional<int> code = toNumber<int>(text.substr(0, 3));
        if (text == "Access denied!") {
            throw Error(fmt::format("{}: VDR does not let this machine in; add its address to VDR's svdrphosts.conf",
                                    m_address));
        }
        if (!code || text.size() < 4 || (text[3] != '-' && text[3] != ' ')) {
            throw Error(fmt::format("{}: what answers is no VDR: {}; give the place of its SVDRP with --vdr", m_address,
                                    inQuotes(text)));
        }
        bytes += text.size();
        limits::require("bytes of VDR's answer", bytes, limits::CHANNEL_LIST_BYTES);
        answer.code = *code;
        answer.lines.push_back(text.substr(4));
        isLast = text[3] == ' ';
    }
    return answer;
}

// Without its end.
std::string Svdrp::line(Clock::time_point end) {
    for (std::size_t at = 0;;) {
        const std::size_t newline = m_received.find('\n', at);
        if (newline != std::string::npos) {
            std::string line = m_received.substr(0, newline);
            m_received.erase(0, newline + 1);
            return line.substr(0, line.find_last_not_of('\r') + 1);
        }
        limits::require("bytes of a line of VDR's", m_received.size(), limits::CHANNEL_LINE_BYTES);
        at = m_received.size();
        char buffer[4096];
        if (!waitForDescriptor(m_socket, POLLIN, end)) {
            throw Error(fmt::format("{}: no answer in {} seconds; is it VDR's SVDRP?", m_address,
                                    std::chrono::seconds(ANSWER_LIMIT).count()));
        }
        const ssize_t count = ::recv(m_socket.get(), buffer, sizeof buffer, 0);
        if (count <= 0) {
            throw Error(fmt::format("{}: VDR has closed the connection", m_address));
        }
        m_received.append(buffer, static_cast<std::size_t>(count));
    }
}

// Runs the commands that stop and start VDR, in a process that this one's confinement does not bind. If this one ends
// while VDR is stopped, by a kill even, VDR is started.
class Switch {
public:
    Switch(const std::string& stop, const std::string& start)
        : m_ends(socketPair("the commands for VDR")), m_process(options(stop, start, m_ends[1].get())) {
        m_ends[1].reset();
    }
    ~Switch() {
        m_ends[0].reset();
        m_process.wait();
    }
    Switch(const Switch&) = delete;
    Switch& operator=(const Switch&) = delete;

    // "stop", "start", or "runs": it need not be started. Returns the command's exit code.
    int operator()(const std::string& word) const {
        const std::string line = word + "\n";
        std::string answer;
        const Clock::time_point end = Clock::now() + COMMAND_LIMIT;
        if (::send(m_ends[0].get(), line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size())) {
            char byte = 0;
            while (waitForDescriptor(m_ends[0], POLLIN, end) && ::recv(m_ends[0].get(), &byte, 1, 0) == 1 &&
                   byte != '\n') {
                answer += byte;
            }
        }
        return toNumber<int>(answer).value_or(-1);
    }

private:
    // The cloud's keys are not for VDR, which may be the start command's child.
    static ProcessOptions options(const std::string& stop, const std::string& start, int socket) {
        constexpr char SCRIPT[] = R"(
            stopped=
            while read -r word <&1; do
                case $word in
                    stop) stopped=1; sh -c "$0" ;;
                    start) sh -c "$1" && stopped= ;;
                    *) stopped= ;;
                esac >/dev/null 2>&1 </dev/null
                echo $?
            done
            [ -z "$stopped" ] || exec sh -c "$1" >/dev/null 2>&1 </dev/null)";
        ProcessOptions options;
        options.words = {"env", "-u", "AWS_ACCESS_KEY_ID", "-u", "AWS_SECRET_ACCESS_KEY", "sh", "-c", SCRIPT,
                         stop,  start};
        options.output = socket;
        options.hasOwnGroup = true;
        return options;
    }

    DescriptorPair m_ends;
    Process m_process;
};

// The service that a line stands for; nothing if it is not understood, or a group.
std::optional<Service> serviceOf(const std::string& line) {
    ChannelList list;
    ChannelListReader("", list).take(toUtf8(line));
    return list.services.empty() ? std::nullopt : std::optional(list.services.front());
}

bool isIpTelevision(const Service& service) {
    return service.source.front() == 'I';
}

// A channel that stays at a restore, whatever the backup has.
struct Staying {
    int number = 0;
    std::string line;
    std::string group;
};

// What VDR has.
struct VdrList {
    ChannelList all;
    ChannelList shared;                                  // what a backup carries
    std::vector<Staying> own;                            // the others
    std::vector<std::pair<Service, Staying>> scheduled;  // those of the shared that a timer needs
    std::vector<std::string> notUnderstood;              // of the own
    std::string current;                                 // identity of what is on; empty if it is not known
};

std::set<std::string> idsWithTimer(Svdrp& vdr) {
    std::set<std::string> ids;
    // Each is "NUMBER FLAGS:ID:DAY:..."
    for (const std::string& timer : vdr.ask("LSTT id").lines) {
        const std::vector<std::string> fields = split(timer, ':');
        ids.insert(fields.size() > 1 ? fields[1] : "");
    }
    return ids;
}

VdrList read(Svdrp& vdr, const std::string& address) {
    const Svdrp::Answer answer = vdr.ask("LSTC :ids :groups");
    if (answer.code != 250) {
        throw Error(
            fmt::format("{}: VDR lists no channels: {}; see its log if its channels.conf has some, which it reads "
                        "whole or not at all",
                        address, shown(answer.lines.front())));
    }
    const std::set<std::string> timers = idsWithTimer(vdr);
    const std::vector<std::string> on = split(vdr.ask("CHAN").lines.front(), ' ');
    VdrList list;
    ChannelListReader all("", list.all);
    ChannelListReader shared("VDR's list", list.shared);
    std::string group;
    bool isGap = false;
    for (const std::string& text : answer.lines) {
        // "0 :GROUP", or "NUMBER ID LINE".
        const std::size_t blank = std::min(text.find(' '), text.size() - 1);
        const std::string number = text.substr(0, blank);
        std::string line = text.substr(blank + 1);
        if (number == "0") {
            all.take(toUtf8(line));
            shared.take(toUtf8(line));
            group = line.substr(line.compare(0, 2, ":@") == 0 ? std::min(line.find(' '), line.size() - 1) + 1 : 1);
            continue;
        }
        const std::size_t idEnd = std::min(line.find(' '), line.size() - 1);
        const std::string id = line.substr(0, idEnd);
        line.erase(0, idEnd + 1);
        all.take(toUtf8(line));
        const Staying staying{toNumber<int>(number).value_or(0), line, group};
        const std::optional<Service> service = serviceOf(line);
        if (!service || isIpTelevision(*service)) {
            if (!service) {
                list.notUnderstood.push_back(line);
            }
            list.own.push_back(staying);
            isGap = true;
            continue;
        }
        if (isGap) {
            shared.take(fmt::format(":@{}", staying.number));
            isGap = false;
        }
        shared.take(toUtf8(line));
        if (timers.count(id) != 0) {
            list.scheduled.emplace_back(*service, staying);
        }
        if (number == on.front()) {
            list.current = service->identity;
        }
    }
    return list;
}

// Where two lists differ first in what they mean; empty if they do not.
std::string firstDifference(const ChannelList& left, const ChannelList& right) {
    const std::size_t common = std::min(left.services.size(), right.services.size());
    for (std::size_t i = 0; i < common; ++i) {
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            if (differ(column, left.services[i], right.services[i])) {
                return fmt::format("channel {}, {} {} and {}", left.services[i].number, column.label,
                                   inQuotes(textOf(column, left.services[i])),
                                   inQuotes(textOf(column, right.services[i])));
            }
        }
    }
    if (left.services.size() != right.services.size()) {
        return fmt::format("{} and {}", plural(left.services.size(), "channel"), right.services.size());
    }
    return left.groups.size() == right.groups.size()
               ? ""
               : fmt::format("{} and {}", plural(left.groups.size(), "group"), right.groups.size());
}

// Makes VDR's list of a restored one and of what stays. A channel that stays keeps its number if the restored list
// leaves that free; else it comes to the end.
class Merge {
public:
    Merge(std::vector<Staying> staying, Say say) : m_staying(std::move(staying)), m_say(std::move(say)) {
        std::stable_sort(m_staying.begin(), m_staying.end(),
                         [](const Staying& left, const Staying& right) { return left.number < right.number; });
    }

    void take(const std::string& line) {
        if (line.front() == ':') {
            takeHeader(line);
            return;
        }
        const std::optional<Service> service = serviceOf(line);
        const std::string why = refusal(service);
        if (why.empty()) {
            write(m_next, line);
        } else {
            m_say(fmt::format("left out of VDR's list: {}: {}", why, shown(line)));
        }
        ++m_next;
    }

    std::string finish() {
        keepTo(std::numeric_limits<int>::max());
        for (const Staying& each : m_staying) {
            if (!each.group.empty() && each.group != m_group) {
                m_text += fmt::format(":{}\n", each.group);
                m_group = each.group;
            }
            write(m_next++, each.line);
        }
        return m_text;
    }

private:
    // Why VDR must not get a line: one that it cannot read costs the whole list.
    static std::string refusal(const std::optional<Service>& service) {
        if (!service) {
            return "it is no service that a list can express";
        }
        if (isIpTelevision(*service)) {
            return "IP television is each set's own";
        }
        if (service->sid == 0 || service->parameters.empty() ||
            service->frequency / service->frequencyUnit > std::numeric_limits<int>::max()) {
            return "VDR needs a service id, parameters and a frequency that it can count";
        }
        return "";
    }

    void takeHeader(const std::string& line) {
        const std::size_t end = line.find_first_not_of("0123456789", 2);
        const int number = line.compare(0, 2, ":@") == 0 ? toNumber<int>(line.substr(2, end - 2)).value_or(0) : 0;
        std::string name = number == 0 ? line.substr(1) : line.substr(std::min(end, line.size()));
        name.erase(0, std::min(name.find_first_not_of(' '), name.size()));
        keepTo(number, &m_group);
        keepTo(number);
        m_next = std::max(m_next, number);
        if (!name.empty()) {
            m_text += line + "\n";
            m_group = name;
            m_counted = std::max(m_counted, number);
        }
    }

    // Those whose numbers are free below `end`; with a group, those of it that come next.
    void keepTo(int end, const std::string* group = nullptr) {
        for (auto each = m_staying.begin(); each != m_staying.end();) {
            const bool isHere = group != nullptr ? each->number == m_next && each->group == *group
                                                 : each->number >= m_next && each->number < end;
            if (isHere) {
                m_next = each->number;
                write(m_next++, each->line);
                each = m_staying.erase(each);
            } else {
                ++each;
            }
        }
    }

    void write(int number, const std::string& line) {
        if (number != m_counted) {
            m_text += fmt::format(":@{}\n", number);
        }
        m_text += line + "\n";
        m_counted = number + 1;
    }

    std::vector<Staying> m_staying;
    Say m_say;
    std::string m_text;
    std::string m_group;
    int m_next = 1;     // the number of the next channel
    int m_counted = 1;  // what VDR takes for it
};

// Gives services the ids that those of their identities have in another list: a backup names what is on by its id.
void takeIds(ChannelList& list, const Services& known) {
    std::uint64_t highest = 0;
    known.forEach([&](const Service& service) { highest = std::max(highest, service.id); });
    if (highest > std::numeric_limits<std::int32_t>::max()) {
        return;  // there may be no room for others
    }
    const ServiceFinder inKnown = known.finder();
    for (Service& service : list.services) {
        const Service* same = inKnown(service.identity);
        service.id = same != nullptr ? same->id : ++highest;
    }
}

void copy(const ChannelList& list, ChannelSink& sink) {
    for (const std::string& group : list.groups) {
        sink.addGroup(group);
    }
    for (const Service& service : list.services) {
        sink.addService(service);
    }
    for (const ListHeader& header : list.headers) {
        sink.addHeader(header);
    }
}

bool hasHeaders(const Services& services, const ChannelList& list) {
    const std::vector<ListHeader> headers = services.headers();
    return std::equal(headers.begin(), headers.end(), list.headers.begin(), list.headers.end(),
                      [](const ListHeader& left, const ListHeader& right) {
                          return left.before == right.before && left.text == right.text;
                      });
}

void copyOwner(const fs::path& from, const fs::path& to) {
    struct stat status = {};
    if (::stat(from.c_str(), &status) != 0 || ::chown(to.c_str(), status.st_uid, status.st_gid) != 0) {
        throw Error::ofSystem(to, "cannot be VDR's; restore as VDR's user, or as root");
    }
    copyPermissions(from, to);
}

class Vdr final : public ListKeeper {
public:
    Vdr(const Keeper& keeper, const Say& say);

    ChannelSource list() override;
    void refresh(Tv& tv) override;
    std::optional<ReplaceStatus> replace(Tv& tv, const fs::path& archive) override;
    bool takeOver(const std::list<std::string>& ciFiles) override;
    void show(const Service& service) override;
    std::vector<fs::path> folders() const override;

private:
    VdrList readNow() const;
    VdrList readSettled(std::string& difference) const;
    ChannelList fileNow() const;
    bool answers() const;
    void refreshCi(const Tv& tv) const;
    void restore(Tv& tv, const fs::path& archive, const Services& received) const;
    std::string merged(const VdrList& before, const Services& received) const;
    void store(Tv& tv, VdrList list) const;
    void exchange(const fs::path& target, const std::string& text, const std::function<void()>& check) const;
    void stop() const;
    void start() const;

    Say m_say;
    std::string m_address;
    fs::path m_file;   // channels.conf, not a link to it
    fs::path m_cache;  // empty: there is none
    std::string m_stop;
    std::string m_start;
    std::unique_ptr<Switch> m_switch;  // null: VDR cannot be stopped
};

Vdr::Vdr(const Keeper& keeper, const Say& say) : m_say(say) {
    const auto option = [&](const char* name) {
        const auto found = keeper.options.find(name);
        return found == keeper.options.end() ? "" : found->second;
    };
    m_address = option(PLACE);
    const fs::path given = fs::path(option(CONFIG)) / "channels.conf";
    std::error_code error;
    m_file = fs::canonical(given, error);  // of which Debian's has a link
    if (error) {
        throw Error::ofSystem(given, "give the folder of VDR's configuration with --vdr-config", error.value());
    }
    m_cache = option(CACHE).empty() ? USUAL_CACHE : option(CACHE);
    if (!isFolder(m_cache)) {
        m_cache.clear();
    }
    m_stop = option(STOP);
    m_start = option(START);
    if (!m_stop.empty()) {
        m_switch = std::make_unique<Switch>(m_stop, m_start);
    }
}

std::vector<fs::path> Vdr::folders() const {
    std::vector<fs::path> folders = {m_file.parent_path()};
    if (!m_cache.empty()) {
        folders.push_back(m_cache);
    }
    return folders;
}

VdrList Vdr::readNow() const {
    Svdrp vdr(m_address);
    return read(vdr, m_address);
}

ChannelList Vdr::fileNow() const {
    ChannelList list;
    readChannelList(m_file, list);
    return list;
}

// Waits until VDR's file has what its list has, and says where they still differ.
VdrList Vdr::readSettled(std::string& difference) const {
    VdrList list;
    waitFor(SAVE_LIMIT, [&] {
        list = readNow();
        difference = firstDifference(list.all, fileNow());
        return difference.empty();
    });
    return list;
}

ChannelSource Vdr::list() {
    if (!Svdrp(m_address).isLocal()) {
        m_say(fmt::format("VDR is on another machine: {} must be the folder of its configuration, mounted here",
                          m_file.parent_path().string()));
    }
    return [list = readNow().shared](ChannelSink& sink) { copy(list, sink); };
}

void Vdr::refresh(Tv& tv) {
    std::string difference;
    const VdrList list = readSettled(difference);
    if (!difference.empty()) {
        m_say(
            fmt::format("VDR's list has changes that {} lacks, and the list counts: {}", m_file.string(), difference));
    }
    for (const std::string& line : list.notUnderstood) {
        m_say(fmt::format("a channel of VDR is not understood, and in no backup: {}", shown(line)));
    }
    store(tv, list);
    refreshCi(tv);
}

// Leaves what means the same as it is.
void Vdr::store(Tv& tv, VdrList list) const {
    const Services known = tv.services();
    takeIds(list.shared, known);
    std::string own;
    for (const Staying& each : list.own) {
        own += each.line + "\n";
    }
    const ChannelSource source = [&](ChannelSink& sink) { copy(list.shared, sink); };
    const ScratchFolder scratch(tv.home() / "service-db");
    const ServiceDb built(scratch / "built");
    built.create(source, own);
    if (!ServiceDifference(known, built.services()).isSame() || !hasHeaders(known, list.shared) ||
        tv.serviceDb().ipServices() != own) {
        tv.serviceDb().create(source, own);
    }
    const Services services = tv.services();
    const Service* on = services.finder()(list.current);
    const std::uint64_t id = tv.viewing().serviceId;
    if (const std::uint64_t now = on != nullptr ? on->id : (services.find(id) ? id : services.first()); now != id) {
        tv.changeViewing([&](Viewing& viewing) { viewing.serviceId = now; });
    }
}

void Vdr::refreshCi(const Tv& tv) const {
    const fs::path file = m_cache / CAM_DATA;
    const fs::path taken = tv.home() / "ci" / CAM_DATA;
    // VDR makes an empty one if there is no module.
    if (m_cache.empty() || !isRegularFile(file) || sizeOf(file) == 0) {
        removeFile(taken);
    } else if ((!isRegularFile(taken) || digestOf(taken) != digestOf(file)) && !tv.ciFiles().takeOver({file})) {
        throw Error(fmt::format("{}: cannot be taken over", file.string()));
    }
}

std::optional<ReplaceStatus> Vdr::replace(Tv& tv, const fs::path& archive) {
    const ScratchFolder scratch(tv.home() / "service-db");
    const fs::path built = scratch / "services.db";
    if (const std::optional<ReplaceStatus> problem = adoptServices(archive, built)) {
        return problem;
    }
    try {
        restore(tv, archive, Services(built));
    } catch (const Error& error) {
        m_say(error.what());
        return ReplaceStatus::NotPutInPlace;
    }
    return std::nullopt;
}

void Vdr::restore(Tv& tv, const fs::path& archive, const Services& received) const {
    std::string difference;
    const VdrList before = readSettled(difference);
    if (!difference.empty()) {
        throw Error(
            fmt::format("VDR's list and {} differ: {}; wait until VDR has saved it", m_file.string(), difference));
    }
    const std::string text = merged(before, received);
    ChannelList wanted;
    ChannelListReader reader("", wanted);
    for (const std::string& line : split(text, '\n')) {
        reader.take(toUtf8(line));
    }
    const auto adopt = [&] {
        VdrList now;
        const bool isThere = waitFor(READY_LIMIT, [&] {
            now = readSettled(difference);
            difference = difference.empty() ? firstDifference(wanted, now.all) : difference;
            return difference.empty();
        });
        if (!isThere) {
            throw Error(fmt::format("VDR has not taken the restored list: {}", difference));
        }
        if (tv.serviceDb().replace(archive)) {
            throw Error("the restored list cannot be put in place on the TV");
        }
        store(tv, now);
    };
    if (firstDifference(before.all, wanted).empty()) {
        adopt();
    } else {
        exchange(m_file, text, adopt);
    }
}

std::string Vdr::merged(const VdrList& before, const Services& received) const {
    std::vector<Staying> staying = before.own;
    const ServiceFinder inReceived = received.finder();
    for (const auto& [service, scheduled] : before.scheduled) {
        if (inReceived(service.identity) == nullptr) {
            m_say(fmt::format("the backup lacks {}, which a timer of VDR needs: it stays", inQuotes(service.name)));
            staying.push_back(scheduled);
        }
    }
    Merge merge(std::move(staying), m_say);
    exportChannels(
        received, ExportFormat::Vdr,
        [&](std::string_view line) { merge.take(std::string(line.substr(0, line.size() - 1))); }, m_say);
    std::string text = merge.finish();
    if (text.empty()) {
        throw Error("the backup has no channel that VDR can have");
    }
    return text;
}

bool Vdr::takeOver(const std::list<std::string>& ciFiles) {
    try {
        for (const std::string& path : ciFiles) {
            if (fs::path(path).filename() != CAM_DATA) {
                continue;
            }
            if (m_cache.empty()) {
                throw Error("VDR's cam.data has no place; give the folder of its cache with --vdr-cache");
            }
            const fs::path target = m_cache / CAM_DATA;
            if (!isRegularFile(target) || digestOf(target) != digestOf(path)) {
                exchange(target, readFile(path, limits::ENTRY_BYTES), [] {});
            }
        }
    } catch (const Error& error) {
        m_say(error.what());
        return false;
    }
    return true;
}

// Puts a file of VDR's in place while it is stopped. If VDR does not start again, or the check throws Error, the old
// one is put back.
void Vdr::exchange(const fs::path& target, const std::string& text, const std::function<void()>& check) const {
    if (!m_switch) {
        throw Error(
            "the files of a running VDR cannot be restored; make the TV with --vdr-stop and --vdr-start, such as "
            "'systemctl stop vdr' and 'systemctl start vdr'");
    }
    const ScratchFolder scratch(target.parent_path());
    const fs::path built = scratch / "new";
    const fs::path old = scratch / "old";
    writeFile(built, text);
    copyOwner(isRegularFile(target) ? target : m_file, built);
    stop();
    bool isPut = false;
    try {
        if (isRegularFile(target)) {
            linkFile(target, old);
        }
        putInPlace(built, target);
        isPut = true;
        start();
        check();
    } catch (const Error& error) {
        stop();
        if (isPut && !(isRegularFile(old) ? putInPlace(old, target) : removeFile(target))) {
            m_say(fmt::format("{}: what it was could not be put back", target.string()));
        }
        start();
        throw Error(fmt::format("{}; VDR has its old {} again", error.what(), target.filename().string()));
    }
}

bool Vdr::answers() const {
    try {
        const Svdrp vdr(m_address);
        return true;
    } catch (const Error&) {
        return false;
    }
}

void Vdr::stop() const {
    const int code = (*m_switch)("stop");
    if (!waitFor(READY_LIMIT, [&] { return !answers(); })) {
        (*m_switch)("runs");
        throw Error(fmt::format("VDR still answers after it was stopped by: {} (exit code {})", m_stop, code));
    }
}

void Vdr::start() const {
    const int code = (*m_switch)("start");
    if (!waitFor(READY_LIMIT, [&] { return answers(); })) {
        throw Error(fmt::format("VDR does not answer after it was started by: {} (exit code {})", m_start, code));
    }
}

void Vdr::show(const Service& service) {
    try {
        const Svdrp::Answer answer = Svdrp(m_address).ask("CHAN " + service.identity);
        if (answer.code != 250) {
            m_say(fmt::format("VDR does not show {}: {} {}", inQuotes(service.name), answer.code,
                              shown(answer.lines.front())));
        }
    } catch (const Error& error) {
        m_say(error.what());
    }
}

const KeeperKind VDR("vdr",
                     {{PLACE,
                       "HOST:PORT of the SVDRP of a running VDR that keeps the channel list, such as localhost:6419"},
                      {CONFIG, "folder of that VDR's configuration, such as /var/lib/vdr", true, true},
                      {CACHE, "folder of its cache (default: /var/cache/vdr)", false, true},
                      {STOP, "command that stops it for a restore, such as 'systemctl stop vdr'"},
                      {START, "command that starts it again"}},
                     [](const Keeper& keeper, const Say& say) -> std::unique_ptr<ListKeeper> {
                         return std::make_unique<Vdr>(keeper, say);
                     });

}  // namespace

}  // namespace sim
