// Malicious input: bundles, names and lists.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "simulator/base/Archive.h"
#include "simulator/base/Database.h"
#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/ChannelList.h"
#include "tests/support/Archives.h"
#include "tests/support/CommandLine.h"
#include "tests/support/Restore.h"

namespace fs = std::filesystem;

namespace {

using test::Answer;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::ThrowsMessage;

// A bundle whose entry names escape from the TV.
class HostileInput : public test::CommandLine {};

TEST(Shown, LetsNothingControlTheTerminal) {
    const std::vector<std::pair<std::string, std::string>> texts = {
        {"Grüße, 日本 😀", "Grüße, 日本 😀"},
        {"\x1b[31mred", "\\x1b[31mred"},
        {"a\nb\tc\r", "a\\nb\\tc\\x0d"},
        {"\xc2\x9b"
         "31m",
         "\\xc2\\x9b31m"},
        {"abc\u202etxt.exe", "abc\\u{202e}txt.exe"},
        {"\xff\xc3", "\\xff\\xc3"},
        {std::string("a\0b", 3), "a\\x00b"},
    };
    for (const auto& [text, shown] : texts) {
        EXPECT_EQ(sim::shown(text), shown);
    }
    EXPECT_EQ(sim::inColumns("日本語", 5), "日本…");
    EXPECT_EQ(sim::inColumns("ab", 4), "ab  ");
}

TEST_F(HostileInput, NamesFromOutsideAreShownSafely) {
    test::write(folder / "list.conf", ":\x1b[2JGroup\n\x1b]0;gone\x07\u202e:410:M64:C:6900:1:2:3:0:1:1:1:0\n");
    init();
    EXPECT_EQ(tv("set favname1 $(printf '\\033[8mhidden')").code, 0);
    for (const std::string command : {"status --services", "-v run", "record --log --calls",
                                      "fault add $(printf '\\033[1m') throw", "run $(printf '\\033[1m')"}) {
        const Answer answer = tv(command);
        EXPECT_THAT(answer.text, AllOf(HasSubstr("\\x1b"), Not(HasSubstr("\x1b")))) << command;
    }
}

TEST_F(HostileInput, TheSerialNumberIsEscaped) {
    EXPECT_EQ(tv("init --channels " + (folder / "list.conf").string() + " --serial '\"/><x a=\"&'").code, 0);
    EXPECT_EQ(test::readFile(home() / "ci/ci_operator.xml"), "<operator set=\"&#34;/>&#60;x a=&#34;&#38;\"/>\n");
}

TEST_F(HostileInput, WhatIsReadHasLimits) {
    EXPECT_THAT(
        [] {
            sim::ChannelList list;
            sim::readChannelList("/dev/zero", list);
        },
        ThrowsMessage<sim::Error>(AllOf(HasSubstr("bytes of a line"), HasSubstr("the limit is 16384"))));
    test::makeArchive(folder / "x.zip", {{"entry", "text"}});
    std::string bytes = test::readFile(folder / "x.zip");
    test::setNumber(bytes, test::centralRecord(bytes, 0) + 24, 4, 0x7fffffff);
    test::write(folder / "x.zip", bytes);
    EXPECT_THAT([&] { sim::extractEntry(folder / "x.zip", "entry", folder / "entry"); },
                ThrowsMessage<sim::Error>(HasSubstr("entry 'entry': bytes: 2147483647, and the limit is 1073741824")));
    EXPECT_THAT(sim::limits::cut(std::string(20'000, 'x')), EndsWith("x... (20000 bytes)"));
    EXPECT_THAT(sim::limits::cut(std::string(16'383, 'x') + "\u00e9"), EndsWith("xx... (16385 bytes)"));
    EXPECT_EQ(sim::limits::cut(std::string(16'382, 'x') + "\u00e9"), std::string(16'382, 'x') + "\u00e9");
}

// What a bundle announces is refused before a byte of it is unpacked.
TEST_F(HostileInput, ABundleHasLimitsInSum) {
    const auto problem = [&](std::uint64_t maxBytes) {
        const sim::Unpacking unpacking = sim::unpackBundle(
            sim::openFile(folder / "x.zip", O_RDONLY), folder / "x", [](const auto&) { return 9U; }, maxBytes);
        EXPECT_EQ(unpacking.problem.empty(), fs::exists(folder / "x"));
        return unpacking.problem;
    };
    test::makeArchive(folder / "x.zip", {{"1", "12345"}, {"2", "12345"}, {"3", "12345"}});
    EXPECT_EQ(problem(14), "bytes of all entries: 15, and the limit is 14");
    EXPECT_EQ(problem(15), "");
    fs::remove_all(folder / "x");

    // Each central record is that of the first entry.
    const std::string data(10'000, 'x');
    std::vector<std::pair<std::string, std::string>> entries;
    for (const char name : std::string("abcdefgh")) {
        entries.emplace_back(std::string(1, name), data);
    }
    test::makeArchive(folder / "x.zip", entries);
    std::string bytes = test::readFile(folder / "x.zip");
    const std::size_t first = test::centralRecord(bytes, 0);
    const std::size_t size = test::centralRecord(bytes, 1) - first;
    const std::string record = bytes.substr(first, size);
    for (std::size_t i = 0; i < 8; ++i) {
        bytes.replace(first + i * size, size, record);
    }
    bytes.erase(first - 7 * first / 8, 7 * first / 8);  // the other entries
    test::setNumber(bytes, bytes.size() - 22 + 16, 4, first / 8);
    test::write(folder / "x.zip", bytes);
    EXPECT_EQ(problem(1U << 30),
              fmt::format("packed bytes of all entries: {}, and the limit is {}", 8 * data.size(), 4 * bytes.size()));
}

TEST_F(HostileInput, AnEntryBeyondItsLimitIsPassedOver) {
    test::makeArchive(folder / "y.zip", {{"vconf.json", "[" + std::string(4U << 20, ' ') + "]"}, {"ci/x.bin", "x"}});
    const sim::Bundle bundle(folder / "y.zip", std::nullopt);
    EXPECT_EQ(bundle.part(sim::Item::Favourite1).problem,
              "entry 'vconf.json': bytes: 4194306, and the limit is 4194304");
    EXPECT_EQ(bundle.entries().at(0).digest, "") << "it was read";
    EXPECT_EQ(bundle.entries().size(), 2U);
    std::string values = "[0";
    for (std::size_t i = 0; i < sim::JSON_VALUES; ++i) {
        values += ",0";
    }
    test::makeArchive(folder / "z.zip", {{"vconf.json", values + "]"}});
    const sim::Bundle many(folder / "z.zip", values + "]");
    for (const sim::Item item : {sim::Item::Favourite1, sim::Item::Viewing}) {
        EXPECT_THAT(many.part(item).problem, HasSubstr("no JSON text of at most 100000 values"));
    }
}

TEST_F(HostileInput, EntriesDoNotMeetWhatIsMadeOfABundle) {
    test::TvPair pair;
    pair.a.backUp();
    std::vector<std::pair<std::string, std::string>> entries = {{"services.db/x", ""}, {"iss.db/x", ""}};
    for (const char* name : {"ServiceDB.zip", "issDB.zip"}) {
        ASSERT_TRUE(sim::extractEntry(pair.storedBackup() / "bundle.zip", name, folder / name));
        entries.emplace_back(name, test::readFile(folder / name));
    }
    test::makeArchive(folder / "x.zip", entries);
    const sim::Bundle bundle(folder / "x.zip", std::nullopt);
    EXPECT_EQ(bundle.part(sim::Item::Channels).state, sim::PartState::Whole);
    EXPECT_EQ(bundle.part(sim::Item::Iss).state, sim::PartState::Whole);
}

// What the application unpacks, though other tools say something else.
TEST_F(HostileInput, ABundleThatReadersDisagreeOnIsAmbiguous) {
    const auto ambiguities = [&](const std::vector<std::pair<std::string, std::string>>& entries,
                                 const std::function<void(std::string&)>& change) {
        test::makeArchive(folder / "x.zip", entries);
        std::string bytes = test::readFile(folder / "x.zip");
        change(bytes);
        test::write(folder / "x.zip", bytes);
        const sim::Bundle bundle(folder / "x.zip", std::nullopt);
        EXPECT_FALSE(bundle.isWhole());
        return bundle.ambiguities();
    };
    const auto nothing = [](std::string&) {};
    EXPECT_THAT(ambiguities({{"a", "1"}, {"b", "2"}}, nothing), ElementsAre());
    EXPECT_THAT(ambiguities({{"a", "1"}, {"./a", "2"}}, nothing),
                ElementsAre("entry './a' takes the place of an earlier one"));
    EXPECT_THAT(ambiguities({{std::string(300, 'n'), "1"}}, nothing), ElementsAre(HasSubstr("for another reader")));
    EXPECT_THAT(ambiguities({{"vconf.json", "{}"}},
                            [](std::string& bytes) { bytes[test::centralRecord(bytes, 0) + 46 + 9] = 'N'; }),
                ElementsAre(HasSubstr("another reader: ")));
    EXPECT_THAT(ambiguities({{"\xfc"
                              "ber",
                              "1"}},
                            nothing),
                ElementsAre());
}

// Nothing waits for a pipe or reads a device for ever.
class EndlessFile : public HostileInput {
protected:
    void put(const fs::path& file, bool isPipe) {
        fs::remove(file);
        if (isPipe) {
            ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
        } else {
            fs::create_symlink("/dev/zero", file);
        }
    }

    test::Strings looks() const { return {"status", "record", "export --format vdr", "diff " + home("mine").string()}; }

    // 124 is the code of a command that does not end.
    Answer limited(const std::string& words, const std::string& home = "tv") {
        return test::shell(fmt::format("{} timeout 20 '{}' {}", environment(home), test::TOOL, words));
    }
};

TEST_F(EndlessFile, InAStoreDamagesItsBackupOnly) {
    init();
    tv("run -q");
    tv("run -q");
    const fs::path backup = folder / "cloud/Qr7tLw2ZkA/OOBERFChannelList/000001";
    for (const std::string name : {"info.json", "metadata.json", "bundle.zip"}) {
        for (const bool isPipe : {true, false}) {
            fs::copy(backup, folder / "kept");
            put(backup / name, isPipe);
            const Answer list = limited("cloud list");
            EXPECT_EQ(list.code, 6) << name;
            EXPECT_THAT(list.text, AllOf(HasSubstr("DAMAGED"), HasSubstr("000002  "))) << name;
            EXPECT_EQ(limited("bundle show 000001").code, 6) << name;
            EXPECT_EQ(limited("run -q operation=restore --backup 000001").code, 6) << name;
            fs::remove_all(backup);
            fs::rename(folder / "kept", backup);
        }
    }
}

TEST_F(EndlessFile, IsNoMetadata) {
    test::makeArchive(folder / "x.zip", {{"a", "1"}});
    const std::string bundle = (folder / "x.zip").string();
    for (const bool isPipe : {true, false}) {
        put(bundle + ".json", isPipe);
        const std::string given = fmt::format("bundle show {0} --metadata {0}.json", bundle);
        for (const std::string& words : {"bundle show " + bundle, given}) {
            const Answer answer = limited(words);
            EXPECT_EQ(answer.code, 3);
            EXPECT_THAT(answer.text, HasSubstr("x.zip.json: not a regular file"));
        }
    }
}

TEST_F(EndlessFile, InTheTvOfAnotherUserEndsTheLook) {
    init("mine");
    for (const std::string name : {"tv.db", "iss.db", "service-db/services.db", "service-db/ipsrv", "ci/x"}) {
        for (const bool isPipe : {true, false}) {
            init();
            put(home() / name, isPipe);
            for (const std::string& words : looks()) {
                EXPECT_NE(limited(words).code, 124) << name << ": " << words;
            }
            EXPECT_NE(limited("diff " + home().string(), "mine").code, 124) << name;
            fs::remove_all(home());
        }
    }
}

TEST_F(EndlessFile, IsNoneThatAViewMakes) {
    init("mine");
    const std::string endless = " AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT ";
    for (const auto& [name, statements] : std::vector<std::pair<std::string, std::string>>{
             {"tv.db", "ALTER TABLE state RENAME TO t; CREATE VIEW state" + endless + "t.* FROM t, n WHERE i < 0"},
             {"iss.db", "DROP TABLE iss; CREATE VIEW iss" + endless + "i AS key, i AS value FROM n"},
             {"service-db/services.db",
              "ALTER TABLE services RENAME TO t; CREATE VIEW services" + endless + "t.* FROM t, n WHERE i < 0"}}) {
        init();
        sim::Database(home() / name, sim::Database::Access::Change).run(statements);
        for (const std::string& words : looks()) {
            EXPECT_NE(limited(words).code, 124) << name << ": " << words;
        }
        EXPECT_NE(limited("diff " + home().string(), "mine").code, 124) << name;
        fs::remove_all(home());
    }
}

class HostileStore : public test::TwoTvs {};

TEST_F(HostileStore, IsNotLeftByTheNameOfAnAccount) {
    ASSERT_TRUE(a.backUp().succeeded());
    sim::Database(a.home / "tv.db", sim::Database::Access::Change)
        .run("UPDATE state SET account = 'x/../../../escaped'");
    const std::string environment =
        fmt::format("HALCYON_TV_HOME='{}' HALCYON_CLOUD='{}' ", a.home.string(), a.cloud.string());
    const Answer import = test::shell(
        fmt::format("{}'{}' cloud import '{}'", environment, test::TOOL, (storedBackup() / "bundle.zip").string()));
    EXPECT_EQ(import.code, 3);
    EXPECT_THAT(import.text, HasSubstr("'x/../../../escaped' is not a valid account"));
    EXPECT_NE(test::shell(fmt::format("{}'{}' run -q", environment, test::TOOL)).code, 0);
    EXPECT_FALSE(fs::exists(folder / "escaped"));
}

TEST_F(HostileStore, HasLimits) {
    ASSERT_TRUE(a.backUp().succeeded());
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(a.cloud);
    const auto damage = [&] { return store->look(store->content().backups.at(0)).damage; };
    EXPECT_EQ(damage(), "");
    test::write(storedBackup() / "metadata.json", std::string((1U << 20) + 1, ' '));
    EXPECT_THAT(damage(), HasSubstr("metadata.json: bytes: 1048577, and the limit is 1048576"));
    fs::remove(storedBackup() / "info.json");
    ASSERT_EQ(::mkfifo((storedBackup() / "info.json").c_str(), 0600), 0);
    EXPECT_THAT(damage(), HasSubstr("info.json: not a regular file"));
}

class LargeRestore : public test::Restore {};

TEST_F(LargeRestore, IsRefusedAndCutInTheRecord) {
    const test::RunResult run = restoreSettings(R"({"dataSize":1,"data":[{"path":"p","type":1,"value":")" +
                                                std::string(2'000'000, 'x') + R"("}]})");
    EXPECT_TRUE(run.says("5 vconf_set_str of p failed!"));
    EXPECT_THAT(run.timeline, Contains(HasSubstr("bytes of a setting and its key: 2000001, and the limit is 65536")));
    EXPECT_TRUE(run.succeeded());
    for (const sim::CallRecord& call : run.calls) {
        EXPECT_LT(call.arguments.size(), 17'000U) << call.name;
    }
    for (const fs::directory_entry& each : fs::recursive_directory_iterator(b.home)) {
        EXPECT_LT(each.is_regular_file() ? each.file_size() : 0, 1'000'000U) << each.path();
    }
}

}  // namespace
