// A healthy backup and a healthy restore: what they leave, and everything that happens in them, call by call and record
// by record, as tests/data/ has it for people to read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/support/Restore.h"

namespace {

using test::RunResult;
using test::Strings;

// A record about one of a folder's members, whose order is the file system's.
bool isOfMember(const std::string& line) {
    const Strings starts = {"log  ZipUtil m_CreateZipFile 5 ", "log  ZipUtil UnzipFile 5 extracted file ",
                            "log  FileUtil CreateDirectories 5 create_directories({data}temp/ci)"};
    return std::any_of(starts.begin(), starts.end(),
                       [&](const std::string& start) { return line.compare(0, start.size(), start) == 0; });
}

Strings ordered(Strings lines) {
    for (auto begin = lines.begin(); begin != lines.end();) {
        begin = std::find_if(begin, lines.end(), &isOfMember);
        const auto end = std::find_if_not(begin, lines.end(), &isOfMember);
        std::sort(begin, end);
        begin = end;
    }
    return lines;
}

Strings linesOf(const std::string& path) {
    Strings lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// If they differ, the actual run is written beside the test's program, to be compared as a whole.
void expectTimeline(const RunResult& run, const std::string& name) {
    const Strings expected = linesOf(TEST_DATA "/" + name);
    const Strings actual = ordered(run.timeline);
    const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    if (wanted == expected.end() && found == actual.end()) {
        return;
    }
    std::ofstream file(name);
    for (const std::string& line : actual) {
        file << line << '\n';
    }
    ADD_FAILURE() << "line " << wanted - expected.begin() + 1 << " of " << name << ":\n  expected "
                  << (wanted != expected.end() ? *wanted : "the end") << "\n  was      "
                  << (found != actual.end() ? *found : "the end") << "\nThe whole run is in "
                  << std::filesystem::current_path() / name;
}

class Healthy : public test::Restore {};

TEST_F(Healthy, BackupIsAsItHasAlwaysBeen) {
    expectTimeline(a.backUp(), "healthy-backup.txt");
}

TEST_F(Healthy, RestoreIsAsItHasAlwaysBeen) {
    expectTimeline(b.restore(), "healthy-restore.txt");
}

TEST_F(Healthy, RestoreBringsTheChannelSetUpBack) {
    const RunResult run = b.restore();
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.reply, 0);
    EXPECT_EQ(run.reported, sim::Reported::Success);
    EXPECT_EQ(run.ended, sim::RunEnd::Reclaimed) << "it does not end itself";
    EXPECT_EQ(run.exitStatus, 0);
    expectRestored();
    EXPECT_TRUE(b.open().viewing() == a.open().viewing());
}

}  // namespace
