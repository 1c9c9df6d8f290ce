#include "tests/support/TestTv.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "simulator/platform/Device.h"
#include "simulator/tv/ChannelList.h"

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

// Each record stands twice: the prefixed line of the system log, then the logger's with the same place and message.
void expectTwins(const std::vector<sim::LogRecord>& log) {
    ASSERT_EQ(log.size() % 2, 0U);
    for (std::size_t i = 0; i < log.size(); i += 2) {
        const sim::LogRecord& system = log[i];
        const sim::LogRecord& logger = log[i + 1];
        EXPECT_EQ(system.sink + " " + logger.sink, "system logger") << system.message;
        EXPECT_EQ(system.tag, "halcyon-lineup");
        const std::string prefix = fmt::format("{}: {}({}) > ", logger.file, logger.function, logger.line);
        const bool isBegin = logger.message == "FUNC BEGIN";
        EXPECT_EQ(system.message, prefix + (isBegin ? "" : logger.message + "\n"));
    }
}

std::vector<std::string> messagesOf(const std::vector<sim::LogRecord>& log) {
    std::vector<std::string> messages;
    messages.reserve(log.size() / 2);
    for (std::size_t i = 0; i + 1 < log.size(); i += 2) {
        messages.push_back(fmt::format("{} {}", log[i].priority, log[i + 1].message));
    }
    return messages;
}

int spawn(const std::vector<std::string>& words, const std::vector<std::string>& settings, const fs::path& errors) {
    std::vector<std::string> environment = settings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
    }
    const auto pointers = [](const std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size() + 1);
        for (const std::string& text : texts) {
            result.push_back(const_cast<char*>(text.c_str()));
        }
        result.push_back(nullptr);
        return result;
    };
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, words.front().c_str(), &actions, nullptr, pointers(words).data(),
                                  pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0) << words.front();
    return pid;
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

std::vector<std::string> tree(const fs::path& folder) {
    std::vector<std::string> paths;
    if (fs::exists(folder)) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            paths.push_back(fs::relative(entry.path(), folder).string() + (entry.is_directory() ? "/" : ""));
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool Outcome::says(const std::string& line) const {
    return std::find(log.begin(), log.end(), line) != log.end();
}

int Outcome::count(const std::string& call) const {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&](const sim::CallRecord& each) { return each.name == call; }));
}

std::vector<std::string> Outcome::callsBetween(const std::string& from, const std::string& to) const {
    return between(calls, from, to, [](const sim::CallRecord& call) { return call.name; });
}

std::vector<std::string> Outcome::logBetween(const std::string& from, const std::string& to) const {
    return between(log, from, to, [](const std::string& line) { return line; });
}

TestTv::TestTv(const fs::path& folder, const std::string& name, const std::string& channels)
    : home(folder / name),
      cloud(folder / "cloud"),
      data(home / "apps/com.kestrel.tv.halcyon-lineup/data/"),
      failures(home / "tmp/halcyon-lineup/") {
    const fs::path list = folder / (name + ".conf");
    write(list, channels);
    sim::Tv::create(home, sim::readChannelList(list), "serial-" + name);
}

Outcome TestTv::launch(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {HALCYON_LINEUP};
    words.insert(words.end(), arguments.begin(), arguments.end());
    sim::Tv tv = open();
    const std::int64_t before = sim::newestRun(tv.database());
    const int pid = spawn(words, {"HALCYON_TV_HOME=" + home.string(), "HALCYON_CLOUD=" + cloud.string()},
                          home.parent_path() / "stderr");
    Outcome outcome;
    EXPECT_EQ(::waitpid(pid, &outcome.exitStatus, 0), pid);
    const std::optional<sim::Run> run = sim::closeRun(tv.database(), before, pid, "ended");
    if (!run) {
        ADD_FAILURE() << "no run began: " << readFile(home.parent_path() / "stderr");
        return outcome;
    }
    outcome.run = *run;
    const bool isCrash = run->ended == sim::Ended::CRASHED;
    EXPECT_EQ(WIFSIGNALED(outcome.exitStatus), isCrash) << readFile(home.parent_path() / "stderr");
    EXPECT_TRUE(isCrash || run->ended == sim::Ended::REFUSED || outcome.exitStatus == 0)
        << readFile(home.parent_path() / "stderr");
    const std::vector<sim::LogRecord> log = sim::listLog(tv.database(), run->id);
    expectTwins(log);
    for (const std::string& message : messagesOf(log)) {
        outcome.log.push_back(readable(message, *this));
    }
    for (sim::CallRecord& call : outcome.calls = sim::listCalls(tv.database(), run->id)) {
        call.arguments = readable(call.arguments, *this);
    }
    return outcome;
}

void TestTv::fault(const std::string& call, const std::string& failure, int nth) {
    sim::FaultRule rule;
    rule.call = call;
    rule.failure = failure;
    rule.nth = nth;
    sim::addFault(open().database(), rule);
}

void TestTv::clearFaults() {
    sim::clearFaults(open().database());
}

int TestTv::faultsFired() {
    int fired = 0;
    for (const sim::FaultRule& rule : sim::listFaults(open().database())) {
        fired += rule.fired;
    }
    return fired;
}

ChannelSetUp TestTv::setUp() {
    sim::Tv tv = open();
    ChannelSetUp result{tv.serviceDb().services(), tv.issDb().entries(), tv.ciModule().files(), {}};
    for (int i = 1; i <= sim::FAVOURITE_LISTS; ++i) {
        result.favourites.push_back(tv.setting(sim::Tv::favouriteKey(i), "string").value());
    }
    return result;
}

TwoTvs::TwoTvs()
    : a(folder.path(), "a",
        ":First\nEins,1;P:11361:HC23:S19.2E:22000:101=27:102=deu@3:0:0:1001:1:1:0\n"
        "Zwei;P:11361:HC23:S19.2E:22000:201=27:202=deu@3:0:9C4:1002:1:1:0\n"
        ":Second\nRadio Drei;P:12266:VC34:S19.2E:27500:0:301=deu@3:0:0:1003:1:2:0\n"),
      b(folder.path(), "b", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n") {
    sim::Tv tv = a.open();
    tv.changeViewing([](sim::Viewing& viewing) {
        viewing.serviceMode = 1;
        viewing.serviceId = 2;
        viewing.category = 2;
        viewing.categoryParam = 2;
        viewing.sortMode = 1;
    });
    tv.setSetting(sim::Tv::favouriteKey(1), "string", "Für Oma");
    tv.setSetting(sim::Tv::favouriteKey(5), "string", "");
}

fs::path TwoTvs::storedBackup(const std::string& id) const {
    return a.cloud / "Qr7tLw2ZkA/OOBERFChannelList" / id;
}

std::vector<std::string> messages() {
    SQLite::Database& database = sim::Device::current().tv.database();
    return messagesOf(sim::listLog(database, sim::newestRun(database)));
}

InProcess::InProcess() : tv(folder.path(), "tv", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n") {
    ::setenv("HALCYON_TV_HOME", tv.home.c_str(), 1);
    ::setenv("HALCYON_CLOUD", tv.cloud.c_str(), 1);
    sim::Device::current();
}

InProcess::~InProcess() {
    sim::Device::close();
}

std::vector<std::string> InProcess::log() {
    SQLite::Database& database = sim::Device::current().tv.database();
    const std::vector<sim::LogRecord> records = sim::listLog(database, sim::newestRun(database));
    expectTwins(records);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i + 1 < records.size(); i += 2) {
        lines.push_back(replaceAll(fmt::format("{} {}({}) {} {}", records[i + 1].file, records[i + 1].function,
                                               records[i + 1].line, records[i].priority, records[i + 1].message),
                                   folder.path().string(), "{folder}"));
    }
    return lines;
}

}  // namespace test
