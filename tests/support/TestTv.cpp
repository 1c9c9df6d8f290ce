#include "tests/support/TestTv.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

#include "platform/path_resolver.h"
#include "simulator/base/Descriptor.h"
#include "simulator/base/Environment.h"
#include "simulator/client/Connection.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/device/Service.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/reports/Judge.h"
#include "tests/support/Foretold.h"
#include "tests/support/LogRecords.h"

namespace fs = std::filesystem;

namespace test {

namespace {

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// Of the form 22112026_074056.
std::string replaceUniqueNames(std::string text) {
    constexpr std::size_t DATE = 8;
    constexpr std::size_t LENGTH = 15;
    for (std::size_t at = text.find('_'); at != std::string::npos; at = text.find('_', at + 1)) {
        const std::string name = at < DATE ? "" : text.substr(at - DATE, LENGTH);
        const bool isName = name.size() == LENGTH && name.find_first_not_of("0123456789") == DATE &&
                            name.find_first_not_of("0123456789", DATE + 1) == std::string::npos;
        if (isName) {
            text.replace(at - DATE, LENGTH, "{name}");
        }
    }
    return text;
}

std::string readable(const std::string& text, const TestTv& tv) {
    std::string result = replaceAll(text, tv.data.string(), "{data}");
    result = replaceAll(result, tv.failures.string(), "{tmp}");
    result = replaceAll(result, tv.home.string() + "/", "{home}");
    return replaceUniqueNames(result);
}

std::vector<std::string> messagesOf(const std::vector<sim::LogRecord>& log) {
    std::vector<std::string> messages;
    messages.reserve(log.size() / 2);
    for (std::size_t i = 0; i + 1 < log.size(); i += 2) {
        messages.push_back(fmt::format("{} {}", log[i].priority, log[i + 1].message));
    }
    return messages;
}

// The two operations have some messages in common.
void expectOneOperation(const RunResult& outcome, const std::vector<sim::LogRecord>& log) {
    const std::string other = outcome.says("5 Do backup") ? "Restore" : "Backup";
    for (const sim::LogRecord& record : log) {
        EXPECT_NE(record.function, other) << record.message;
    }
}

// Calls and log records in their order, a line each.
std::vector<std::string> timelineOf(const std::vector<sim::CallRecord>& calls, const std::vector<sim::LogRecord>& log,
                                    const TestTv& tv) {
    std::map<int, std::string> lines;
    for (const sim::CallRecord& call : calls) {
        lines[call.seq] = fmt::format("call {}({}){}", call.name, call.arguments,
                                      call.result.empty() ? "" : " = " + readable(call.result, tv));
    }
    for (std::size_t i = 0; i + 1 < log.size(); i += 2) {
        lines[log[i].seq] = fmt::format("log  {} {} {} {}", log[i + 1].file, log[i + 1].function, log[i].priority,
                                        readable(log[i + 1].message, tv));
    }
    std::vector<std::string> timeline;
    timeline.reserve(lines.size());
    for (const auto& [seq, line] : lines) {
        timeline.push_back(replaceAll(replaceAll(line, "\n", "\\n"), "\t", "\\t"));
    }
    return timeline;
}

std::vector<sim::LogRecord> newestLog() {
    platform_path_resolve(0, "");  // once this is answered, what was logged before is recorded
    const sim::Tv tv(sim::defaultHome(), sim::Database::Access::Look);
    return tv.runs().record(tv.runs().newest()).log();
}

template <typename Items, typename Name>
std::vector<std::string> between(const Items& items, const std::string& from, const std::string& to, Name name) {
    std::vector<std::string> result;
    for (const auto& item : items) {
        if (!result.empty() || name(item) == from) {
            result.push_back(name(item));
            if (result.size() > 1 && name(item) == to) {
                return result;
            }
        }
    }
    ADD_FAILURE() << "nothing from '" << from << "' to '" << to << "'";
    return result;
}

}  // namespace

void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

std::uint64_t servicesIn(const fs::path& bundle) {
    return sim::Bundle(bundle, std::nullopt).setup().services->counts().services;
}

std::vector<std::string> tree(const fs::path& folder) {
    std::vector<std::string> paths;
    if (fs::exists(folder)) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            paths.push_back(entry.path().lexically_relative(folder).string() + (entry.is_directory() ? "/" : ""));
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool RunResult::succeeded() const {
    return sim::succeeded(*this);
}

bool RunResult::says(const std::string& line) const {
    return std::find(log.begin(), log.end(), line) != log.end();
}

int RunResult::count(const std::string& call) const {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&](const sim::CallRecord& each) { return each.name == call; }));
}

std::vector<std::string> RunResult::callsBetween(const std::string& from, const std::string& to) const {
    return between(calls, from, to, [](const sim::CallRecord& call) { return call.name; });
}

std::vector<std::string> RunResult::logBetween(const std::string& from, const std::string& to) const {
    return between(log, from, to, [](const std::string& line) { return line; });
}

TestTv::TestTv(const fs::path& folder, const std::string& name, const std::string& channels)
    : home(folder / name),
      cloud(folder / "cloud"),
      data(home / "apps/com.kestrel.tv.halcyon-lineup/data/"),
      failures(home / "tmp/halcyon-lineup/") {
    const fs::path list = folder / (name + ".conf");
    write(list, channels);
    sim::Tv::create(
        home, [&](sim::ChannelSink& sink) { sim::readChannelList(list, sink); }, "serial-" + name);
    fs::create_directory(suppressions().parent_path());
    fs::copy_file(TEST_DATA "/../lsan.supp", suppressions());
}

sim::ProcessOptions TestTv::application(const Strings& arguments) const {
    sim::ProcessOptions launch;
    launch.words = {HALCYON_LINEUP};
    launch.words.insert(launch.words.end(), arguments.begin(), arguments.end());
    launch.environment = {{"HALCYON_TV_HOME", home},
                          {"HALCYON_CLOUD", cloud},
                          {"LSAN_OPTIONS", "suppressions=" + suppressions().string() + ":print_suppressions=0"}};
    return launch;
}

sim::Process TestTv::serveThisProcess() const {
    const sim::DescriptorPair socket = sim::socketPair("the test");
    sim::ProcessOptions services;
    services.words = {HALCYON_TV, "service", "--socket", std::to_string(socket[0].get())};
    services.environment = {{"HALCYON_TV_HOME", home}, {"HALCYON_CLOUD", cloud}};
    services.handedDown = {socket[0].get()};
    ::setenv("HALCYON_TV_HOME", home.c_str(), 1);
    // The connection owns it.
    ::setenv("HALCYON_TV_SOCKET", std::to_string(::fcntl(socket[1].get(), F_DUPFD_CLOEXEC, 0)).c_str(), 1);
    return sim::Process(services);
}

bool TestTv::endsServices() const {
    const std::vector<sim::FaultRule> rules = open().faults().list();
    return std::any_of(rules.begin(), rules.end(),
                       [](const sim::FaultRule& rule) { return rule.call == sim::calls::disk.name; });
}

RunResult TestTv::launch(const Strings& arguments) {
    const Foretold foretold(*this, arguments);
    sim::Tv tv(home);
    const std::int64_t before = tv.runs().newest();
    const fs::path errors = home.parent_path() / "stderr";
    const sim::Descriptor descriptor = sim::openFile(errors, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    sim::ProcessOptions application = this->application(arguments);
    application.errors = descriptor.get();
    sim::DescriptorPair socket;
    if (!endsServices()) {
        socket = sim::socketPair("the test");
        application.environment["HALCYON_TV_SOCKET"] = std::to_string(socket[1].get());
        application.handedDown = {socket[1].get()};
    }
    const sim::Process process(application);
    if (socket[0].isOpen()) {
        socket[1].reset();
        sim::ServiceOptions options;
        options.home = home;
        options.cloud = cloud;
        options.isConfined = isConfined;
        sim::serveApplication(options, {std::move(socket[0]), sim::Descriptor(), sim::Descriptor()});
    }
    RunResult outcome;
    outcome.exitStatus = process.wait();
    const std::optional<sim::Run> run = tv.runs().close(before, process.id(), sim::describeEnd(outcome.exitStatus));
    if (!run) {
        ADD_FAILURE() << "no run began: " << readFile(errors);
        return outcome;
    }
    static_cast<sim::Run&>(outcome) = *run;
    const bool isCrash = run->ended == sim::RunEnd::Crashed;
    EXPECT_EQ(WIFSIGNALED(outcome.exitStatus), isCrash) << readFile(errors);
    EXPECT_TRUE(isCrash || run->ended == sim::RunEnd::Refused || outcome.exitStatus == 0) << readFile(errors);
    const std::vector<sim::LogRecord> log = tv.runs().record(run->id).log();
    expectListedRecords(log);
    for (const std::string& message : messagesOf(log)) {
        outcome.log.push_back(readable(message, *this));
    }
    outcome.calls = tv.runs().record(run->id).calls();
    for (sim::CallRecord& call : outcome.calls) {
        call.arguments = readable(call.arguments, *this);
    }
    expectOneOperation(outcome, log);
    outcome.timeline = timelineOf(outcome.calls, log, *this);
    foretold.expectTrue();
    return outcome;
}

RunResult TestTv::launchUnder(const std::string& call, const std::string& failure, const Strings& arguments, int nth) {
    fault(call, failure, nth);
    RunResult outcome = launch(arguments);
    EXPECT_EQ(faultsFired(), 1) << call << " " << failure;
    clearFaults();
    return outcome;
}

void TestTv::fault(const std::string& call, const std::string& failure, int nth, int times) {
    sim::FaultRule rule = sim::makeRule(call, failure);
    rule.nth = nth;
    rule.times = times;
    sim::Tv(home).faults().add(rule);
}

void TestTv::clearFaults() {
    sim::Tv(home).faults().clear();
}

int TestTv::faultsFired() {
    int fired = 0;
    for (const sim::FaultRule& rule : sim::Tv(home).faults().list()) {
        fired += rule.fired;
    }
    return fired;
}

std::vector<std::string> TestTv::failureFiles() const {
    std::vector<std::string> files = tree(failures);
    files.erase(std::remove_if(files.begin(), files.end(),
                               [](const std::string& file) { return fs::path(file).extension() == ".json"; }),
                files.end());
    return files;
}

sim::Setup TestTv::setup() const {
    return sim::Tv(home).setup();
}

sim::Verdict TestTv::verdict() const {
    const sim::Tv tv(home);
    return sim::judge(tv, *sim::openCloud(cloud), *tv.runs().find(tv.runs().newest()));
}

TvPair::TvPair()
    : a(folder.path(), "a",
        ":First\nEins,1;P:11361:HC23:S19.2E:22000:101=27:102=deu@3:0:0:1001:1:1:0\n"
        "Zwei;P:11361:HC23:S19.2E:22000:201=27:202=deu@3:0:9C4:1002:1:1:0\n"
        ":Second\nRadio Drei;P:12266:VC34:S19.2E:27500:0:301=deu@3:0:0:1003:1:2:0\n"),
      b(folder.path(), "b", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n") {
    sim::Tv tv = a.open();
    tv.changeViewing([](sim::Viewing& viewing) {
        viewing.mode.service = sim::ServiceMode::Television;
        viewing.serviceId = 2;
        viewing.category = {sim::CategoryKind::Group, 2, sim::SortMode::Name};
    });
    tv.settings().setFavouriteName(1, "Für Oma");
    tv.settings().setFavouriteName(5, "");
}

fs::path TvPair::storedBackup(const std::string& id) const {
    return a.cloud / "Qr7tLw2ZkA/OOBERFChannelList" / id;
}

std::vector<std::string> messages() {
    return messagesOf(newestLog());
}

InProcess::InProcess() : tv(folder.path(), "tv", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n") {
    reconnect();
}

InProcess::~InProcess() {
    expectListedRecords(newestLog());
    client::Connection::close();
    m_services->wait();
}

void InProcess::reconnect() {
    if (m_services) {
        client::Connection::close();
        m_services->wait();
    }
    m_services = std::make_unique<sim::Process>(tv.serveThisProcess());
    client::Connection::current();
}

std::vector<std::string> InProcess::log() {
    const std::vector<sim::LogRecord> records = newestLog();
    std::vector<std::string> lines;
    for (std::size_t i = 0; i + 1 < records.size(); i += 2) {
        lines.push_back(replaceAll(fmt::format("{} {}({}) {} {}", records[i + 1].file, records[i + 1].function,
                                               records[i + 1].line, records[i].priority, records[i + 1].message),
                                   folder.path().string(), "{folder}"));
    }
    return lines;
}

}  // namespace test
