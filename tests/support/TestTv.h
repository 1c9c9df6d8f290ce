// A simulated TV for tests, in a temporary folder of its own; its functions are what a tester does to it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/base/Files.h"
#include "simulator/base/Process.h"
#include "simulator/lineup/Setup.h"
#include "simulator/tv/Tv.h"

namespace test {

// A temporary folder that is removed with all it holds at the end of the scope.
struct TempFolder : sim::ScratchFolder {
    TempFolder() : ScratchFolder(std::filesystem::temp_directory_path()) {}
};

using Strings = std::vector<std::string>;

void write(const std::filesystem::path& file, const std::string& text);
using sim::readFile;

// How many services a bundle's channel database has.
std::uint64_t servicesIn(const std::filesystem::path& bundle);

// The files below a folder, relative to it, sorted; folders end in '/'.
std::vector<std::string> tree(const std::filesystem::path& folder);

// What a run of the application left in its record. Log lines read "<priority> <message>", with the priority 4 for
// details, 5 for progress and 6 for failures; folders of the TV read {data}, {tmp} and {home} in them and in calls, and
// the unique name {name}.
struct RunResult : sim::Run {
    int exitStatus = 0;  // as waitpid() gives it
    std::vector<std::string> log;
    std::vector<sim::CallRecord> calls;

    // Calls and log records in their order: "call <name>(<arguments>) = <result>" and "log  <file> <function>
    // <priority> <message>".
    std::vector<std::string> timeline;

    bool succeeded() const;
    bool says(const std::string& line) const;
    int count(const std::string& call) const;

    // The names of the calls from the first `from` to the first `to` after it.
    std::vector<std::string> callsBetween(const std::string& from, const std::string& to) const;

    // The log from the first line `from` to the first line `to` after it.
    std::vector<std::string> logBetween(const std::string& from, const std::string& to) const;
};

class TestTv {
public:
    // Makes a factory-fresh TV below `folder`; the TVs of a folder share its cloud.
    TestTv(const std::filesystem::path& folder, const std::string& name, const std::string& channels);

    // How the application is started on this TV.
    sim::ProcessOptions application(const Strings& arguments) const;

    // Starts the TV's services for the application's classes in this process, which make their next call there. They
    // end with the connection.
    sim::Process serveThisProcess() const;

    // Runs the application in a process of its own, served by this one, and checks the origin of each log record.
    RunResult launch(const Strings& arguments);
    RunResult backUp() { return launch({"--reply"}); }
    RunResult restore() { return launch({"operation=restore", "--reply"}); }

    // The same with one call, the nth of its name, failing.
    RunResult launchUnder(const std::string& call, const std::string& failure, const Strings& arguments, int nth = 1);
    RunResult backUpUnder(const std::string& call, const std::string& failure, int nth = 1) {
        return launchUnder(call, failure, {"--reply"}, nth);
    }
    RunResult restoreUnder(const std::string& call, const std::string& failure, int nth = 1) {
        return launchUnder(call, failure, {"operation=restore", "--reply"}, nth);
    }

    // A call fails `times` times from its nth in a run on; 0: every time.
    void fault(const std::string& call, const std::string& failure, int nth = 1, int times = 1);
    void clearFaults();
    // How often the rules have fired since they were last cleared.
    int faultsFired();

    sim::Setup setup() const;
    sim::Verdict verdict() const;  // on the newest run
    sim::Tv open() const { return sim::Tv(home); }
    std::vector<std::string> dataFiles() const { return tree(data); }
    std::vector<std::string> failureFiles() const;  // without the metadata beside them

    std::filesystem::path home;
    std::filesystem::path cloud;
    std::filesystem::path data;      // the application's working folder
    std::filesystem::path failures;  // where it keeps the archives of failed operations
    bool isConfined = true;          // the application that is launched

private:
    // Whether a fault rule ends the TV's services: then they need a process of their own.
    bool endsServices() const;

    // Which leaks are deliberate: the application's process is confined, and reads that where it may.
    std::filesystem::path suppressions() const { return home / "apps/lsan.supp"; }
};

// A folder with two TVs.
//   A  three services in two groups, the last one a radio; watches service 2 in mode 2/1 (satellite, television)
//      and category 2/2/1 (the second group, by name); favname1 "Für Oma", favname5 empty
//   B  fresh from the factory: one service, mode 2/0
struct TvPair {
    TvPair();

    // The newest backup's folder in the cloud store.
    std::filesystem::path storedBackup(const std::string& id = "000001") const;

    TempFolder folder;
    TestTv a;
    TestTv b;
};

class TwoTvs : public ::testing::Test, protected TvPair {};

// The log of this process's newest run so far, a record a line: "<priority> <message>".
std::vector<std::string> messages();

// The application's classes in this process, on a factory-fresh TV.
class InProcess : public ::testing::Test {
protected:
    InProcess();
    ~InProcess() override;

    // Begins another run.
    void reconnect();

    // The log of this test so far, a record a line: "<file> <function>(<line>) <priority> <message>".
    std::vector<std::string> log();
    TempFolder folder;
    TestTv tv;

private:
    std::unique_ptr<sim::Process> m_services;
};

}  // namespace test
