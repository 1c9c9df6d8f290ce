// A TV whose channel list a running VDR keeps. Its list is read by SVDRP, VDR's line protocol. A restored list is put
// in place as its file channels.conf while it is stopped: SVDRP can neither move nor remove a group, and VDR has
// forgotten edits that it acknowledged if it ends within seconds.
//
// IP television, and whatever else this program does not understand, belongs to VDR's own set: it is in no backup and
// stays at a restore. So does each channel that a timer needs.
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <memory>
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
#include "simulator/device/Svdrp.h"
#include "simulator/device/VdrChannels.h"
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

constexpr auto SAVE_LIMIT = 6s;       // until VDR's file has what its list has
constexpr auto COMMAND_LIMIT = 120s;  // for VDR to be stopped, or started
constexpr auto READY_LIMIT = 30s;     // for it to answer once it is started, or to answer no more
constexpr auto FAILED_LIMIT = 2s;     // the same, if the command says that it failed
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
    // VDR may be the start command's child: it gets neither the cloud's keys nor the signals that this process ignores.
    static ProcessOptions options(const std::string& stop, const std::string& start, int socket) {
        constexpr char SCRIPT[] = R"(
            trap : PIPE  # nobody may be left to be answered
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
        options.words = {"env", "--default-signal", "--unset=AWS_ACCESS_KEY_ID", "--unset=AWS_SECRET_ACCESS_KEY"};
        options.words.insert(options.words.end(), {"sh", "-c", SCRIPT, stop, start});
        options.output = socket;
        options.hasOwnGroup = true;
        return options;
    }

    DescriptorPair m_ends;
    Process m_process;
};

// Closes the gaps that channels which are gone have left in the favourite lists.
void closeGaps(std::vector<Service>& services) {
    for (int Service::*const place : FAVOURITE_PLACES) {
        std::multimap<int, Service*> places;
        for (Service& service : services) {
            if (service.*place != 0) {
                places.emplace(service.*place, &service);
            }
        }
        int next = 0;
        for (const auto& each : places) {
            each.second->*place = ++next;
        }
    }
}

// VDR knows nothing of what the owner has set on the TV. A name that VDR has now is the broadcaster's.
void takeOwners(Service& service, const Service& known) {
    for (int Service::*const place : FAVOURITE_PLACES) {
        service.*place = known.*place;
    }
    service.locked = known.locked;
    service.hidden = known.hidden;
    service.renamed = known.renamed;
    service.broadcastName = known.broadcastName;
    if (known.renamed && service.name != known.name) {
        service.broadcastName = std::exchange(service.name, known.name);
    }
}

// Gives services what those of their identities have in another list: the id, by which a backup names what is on, and
// what the owner has set.
void takeKnown(ChannelList& list, const Services& known) {
    std::uint64_t highest = 0;
    known.forEach([&](const Service& service) { highest = std::max(highest, service.id); });
    const bool isRoom = highest < std::numeric_limits<std::int32_t>::max();
    const ServiceFinder inKnown = known.finder();
    for (Service& service : list.services) {
        const Service* same = inKnown(service.identity);
        if (same != nullptr) {
            takeOwners(service, *same);
        }
        if (isRoom) {
            service.id = same != nullptr ? same->id : ++highest;
        }
    }
    closeGaps(list.services);
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

bool isCamData(const std::string& path) {
    return fs::path(path).filename() == CAM_DATA;
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
    VdrChannels readNow() const;
    VdrChannels readSettled(std::string& difference) const;
    ChannelList fileNow() const;
    bool answers() const;
    void refreshCi(const Tv& tv) const;
    void restore(Tv& tv, const fs::path& archive, const Services& received) const;
    std::string merged(const VdrChannels& before, const Services& received) const;
    void store(Tv& tv, VdrChannels list) const;
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
    if (m_stop.empty() != m_start.empty()) {
        throw Error("VDR has to be stopped and started for a restore: give both --vdr-stop and --vdr-start");
    }
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

VdrChannels Vdr::readNow() const {
    Svdrp vdr(m_address);
    return readVdrChannels(vdr);
}

ChannelList Vdr::fileNow() const {
    return parseVdrLines(readFile(m_file, limits::CHANNEL_LIST_BYTES));
}

// Waits until VDR's file has what its list has, and says where they still differ.
VdrChannels Vdr::readSettled(std::string& difference) const {
    VdrChannels list;
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
    const VdrChannels list = readSettled(difference);
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
void Vdr::store(Tv& tv, VdrChannels list) const {
    const Services known = tv.services();
    takeKnown(list.shared, known);
    std::string own;
    for (const StayingChannel& each : list.own) {
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
    const ServiceFinder inServices = services.finder();
    const Service* on = inServices(list.current);
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
    const VdrChannels before = readSettled(difference);
    if (const std::string misplaced = firstMisplaced(fileNow(), before.all); !misplaced.empty()) {
        throw Error(fmt::format("{} is not VDR's list: {}; wait until VDR has saved it, or give another folder",
                                m_file.string(), misplaced));
    }
    const std::string text = merged(before, received);
    const ChannelList wanted = parseVdrLines(text);
    const auto adopt = [&] {
        VdrChannels now = readNow();
        difference = firstDifference(wanted, fileNow());
        if (difference.empty()) {
            difference = firstMisplaced(wanted, now.all);
        }
        if (!difference.empty()) {
            throw Error(fmt::format("VDR has not taken the restored list: {}", difference));
        }
        if (tv.serviceDb().replace(archive)) {
            throw Error("the restored list cannot be put in place on the TV");
        }
        store(tv, std::move(now));
    };
    if (firstDifference(before.all, wanted).empty()) {
        adopt();
    } else {
        exchange(m_file, text, adopt);
    }
}

std::string Vdr::merged(const VdrChannels& before, const Services& received) const {
    std::vector<StayingChannel> staying = before.own;
    const ServiceFinder inReceived = received.finder();
    for (const auto& [service, scheduled] : before.scheduled) {
        if (inReceived(service.identity) == nullptr) {
            m_say(fmt::format("the backup lacks {}, which a timer of VDR needs: it stays", inQuotes(service.name)));
            staying.push_back(scheduled);
        }
    }
    std::string text = mergedVdrChannels(received, std::move(staying), m_say);
    if (text.empty()) {
        throw Error("the backup has no channel that VDR can have");
    }
    return text;
}

bool Vdr::takeOver(const std::list<std::string>& ciFiles) {
    try {
        for (const std::string& path : ciFiles) {
            if (!isCamData(path)) {
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
    if (!waitFor(code == 0 ? READY_LIMIT : FAILED_LIMIT, [&] { return answers(); })) {
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
