// The command line as a person and a script use it.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "simulator/base/Database.h"
#include "tests/support/CommandLine.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using test::Answer;

class Cli : public test::CommandLine {};

TEST_F(Cli, MakesATvAndSaysWhatItSkipped) {
    const Answer made = init();
    EXPECT_EQ(made.code, 0);
    EXPECT_THAT(made.text, AllOf(HasSubstr("list.conf:3: 1 field, but a service has 13; line skipped"),
                                 HasSubstr("2 services in 1 group, 1 line skipped")));
    const Answer shown = tv("status --services");
    EXPECT_THAT(shown.text, AllOf(HasSubstr("2 services, 1 of them radio"), HasSubstr("1 Eins (1)"),
                                  HasSubstr("favname5   Favourites 5"), HasSubstr("S19.2E-1-1-1002-0")));
    const Answer again = init();
    EXPECT_EQ(again.code, 3);
    EXPECT_THAT(again.text, HasSubstr("there is something at"));
    const Answer nowhere = tv("status", "nowhere");
    EXPECT_EQ(nowhere.code, 3);
    EXPECT_THAT(nowhere.text, AllOf(HasSubstr("no TV at"), HasSubstr("init --channels")));
}

TEST_F(Cli, NamesTheFormatOfAForeignListAndFewOfItsLines) {
    std::string dvbv5 = "[Eins]\n\tSERVICE_ID = 1\n\tDELIVERY_SYSTEM = DVBS\n";
    for (int i = 0; i < 20; ++i) {
        dvbv5 += "[Eins]\n";
    }
    for (const auto& [text, kind] :
         {std::pair(dvbv5, "a channel list of the DVB tools (dvbv5); "),
          std::pair(std::string("#EXTM3U\nhttp://x\n"), "a playlist (M3U); "),
          std::pair(std::string("eDVB services /4/\nservices\n"), "Enigma2 (lamedb); "),
          std::pair(std::string("{\"name\": 1}\n"), "JSON, as Tvheadend writes it; "),
          std::pair(std::string("a:410000000:INVERSION_AUTO:1\n"), "a channel list of the zap tools; ")}) {
        test::write(folder / "list.conf", text);
        const Answer refused = init();
        EXPECT_EQ(refused.code, 3);
        EXPECT_THAT(refused.text, HasSubstr("no service in it; it looks like this: "));
        EXPECT_THAT(refused.text, HasSubstr(kind));
        EXPECT_LE(std::count(refused.text.begin(), refused.text.end(), '\n'), 12) << refused.text;
    }
    test::write(folder / "list.conf", "Caf\xe9:11361:HC23:S19.2E:22000:101:102:0:0:1001:1:1:0\n");
    EXPECT_THAT(init().text, HasSubstr("list.conf: 1 line is not UTF-8, read as ISO 8859-1 (Latin-1)"));
    EXPECT_EQ(tv("-q init --channels " + (folder / "list.conf").string(), "quiet").text, "");
}

TEST_F(Cli, TakesAServiceThatStandsTwiceOnce) {
    const std::string list = test::readFile(folder / "list.conf");
    test::write(folder / "list.conf", list + "Renamed:11361:HC23:S19.2E:22000:0:202:0:0:1002:1:1:0\n");
    EXPECT_THAT(init().text, AllOf(HasSubstr("list.conf:5: the service S19.2E-1-1-1002-0 stands in line 4 already"),
                                   HasSubstr("2 services in 1 group, 2 lines skipped")));
    EXPECT_THAT(tv("status --services").text, AllOf(HasSubstr("Radio"), Not(HasSubstr("Renamed"))));
}

TEST_F(Cli, BacksUpRestoresAndCompares) {
    init();
    init("other");
    EXPECT_EQ(tv("set favname1 Mine").code, 0);
    const Answer different = tv("diff " + (folder / "other").string());
    EXPECT_EQ(different.code, 1);
    EXPECT_THAT(different.text, HasSubstr("favname1   DIFFERENT  'Mine' | 'Favourites 1'"));
    const Answer backup = tv("run -q");
    EXPECT_EQ(backup.code, 0) << backup.text;
    EXPECT_THAT(backup.text, AllOf(HasSubstr("response   101 (backup completed)"), HasSubstr("outcome    done")));
    EXPECT_THAT(tv("cloud list").text, HasSubstr("000001"));
    EXPECT_THAT(tv("bundle show").text,
                AllOf(HasSubstr("ServiceDB.zip"), HasSubstr("2 services"), HasSubstr("issDB.zip"),
                      HasSubstr("vconf.json"), HasSubstr("ci/ci_profile.bin")));
    const Answer restore = tv("run -v operation=restore", "other");
    EXPECT_EQ(restore.code, 0);
    EXPECT_THAT(restore.text, AllOf(HasSubstr("W/halcyon-lineup: "), HasSubstr("reply      0 (success)"),
                                    HasSubstr("reclaimed by the framework")));
    EXPECT_THAT(restore.text, ::testing::Not(HasSubstr("\x1b["))) << "colour on a terminal only";
    const Answer same = tv("diff " + (folder / "other").string());
    EXPECT_EQ(same.code, 0) << same.text;
    EXPECT_THAT(same.text, ::testing::Not(HasSubstr("DIFFERENT")));
    EXPECT_THAT(tv("record --calls --log", "other").text,
                AllOf(HasSubstr("ITunerControl::GetAntennaConnectionStatus() = 1, {0}\n"),
                      HasSubstr("IUtil::ReplaceServiceDb("), HasSubstr("log 5 HalcyonLineup: m_Restore(")));
    EXPECT_THAT(tv("record --all", "other").text, HasSubstr("restore  done"));
}

TEST_F(Cli, InjectsFaultsAndTellsWhatBecameOfTheRun) {
    init();
    EXPECT_EQ(tv("fault add bnr_backup result=6").code, 0);
    EXPECT_EQ(tv("fault add vconf_get_str null --nth 2").code, 0);
    const Answer crashed = tv("run -q");
    EXPECT_EQ(crashed.code, 1);
    EXPECT_THAT(crashed.text, HasSubstr("crashed: Json::LogicError"));
    const Answer postponed = tv("run -q");
    EXPECT_EQ(postponed.code, 1);
    EXPECT_THAT(postponed.text, HasSubstr("outcome    failed"));
    EXPECT_THAT(tv("fault list").text,
                AllOf(HasSubstr("bnr_backup result=6, from call 1 of a run, 1 time; fired 1 time"),
                      HasSubstr("vconf_get_str null, from call 2 of a run, 1 time; fired 1 time")));
    EXPECT_THAT(tv("record --calls").text, HasSubstr("[fault rule 1]"));
    EXPECT_EQ(tv("fault clear").code, 0);
    EXPECT_EQ(tv("run -q").code, 0);
    EXPECT_THAT(tv("fault calls").text, HasSubstr("IUtil::GetServiceDb"));
    EXPECT_THAT(tv("status --services").text, ::testing::ContainsRegex("no. +name +type +identity +group\n"));
}

struct Mistake {
    const char* words;
    int code;
    const char* text;
};

class CliMistake : public Cli, public ::testing::WithParamInterface<Mistake> {};

TEST_P(CliMistake, IsExplained) {
    init();
    SCOPED_TRACE(GetParam().words);
    const Answer answer = tv(GetParam().words);
    EXPECT_EQ(answer.code, GetParam().code) << answer.text;
    EXPECT_THAT(answer.text, HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Cli, CliMistake,
    ::testing::Values(
        Mistake{"", 2, "A subcommand is required"}, Mistake{"dance", 2, "Run with --help"},
        Mistake{"cloud", 2, "A subcommand is required"}, Mistake{"set service 99", 3, "the TV has no service '99'"},
        Mistake{"set source 9", 3, "the TV has no source '9'"},
        Mistake{"set mode 2", 3, "not of the form ANTENNA/SERVICE"},
        Mistake{"set category 2/7/0", 3, "the TV has no category '2/7/0'"},
        Mistake{"set antenna x", 3, "'x' is not a number"}, Mistake{"set volume 3", 3, "cannot set 'volume' to '3'"},
        Mistake{"set setting:text:k v", 3, "'text' is no type of a setting"},
        Mistake{"set setting:bool:k maybe", 3, "'maybe' is no value of the type bool"},
        Mistake{"fault clear 7", 3, "no rule 7"}, Mistake{"run restore", 2, "'restore' is not of the form key=value"},
        Mistake{"run --backup 000009 operation=restore", 3, "holds no backup 000009"},
        Mistake{"record", 3, "no run yet"}, Mistake{"record 5", 3, "no run 5"},
        Mistake{"bundle show 000001", 3, "holds no backup 000001"},
        Mistake{"cloud show 000001", 2, "use: halcyon-tv bundle show"},
        Mistake{"bundle diff x.zip", 2, "use: halcyon-tv diff"}, Mistake{"cloud list", 0, "No backup in"},
        Mistake{"record --call GetServiceDB", 2, "(did you mean 'GetServiceDb'?)"},
        Mistake{"fault add GetServiceDB throw", 3, "(did you mean 'GetServiceDb'?)"},
        Mistake{"backup", 2, "for a backup: halcyon-tv run operation=backup"},
        Mistake{"fault add bnr_backup null", 3, "bnr_backup cannot fail with 'null'"}));

TEST_F(Cli, FindsAPlaceForTemporaryFiles) {
    init();
    for (const std::string place : {"/nonexistent", "/proc/self"}) {
        for (const std::string words : {"run -q", "run -q operation=restore", "bundle verify", "diff 000001"}) {
            const Answer answer =
                test::shell(fmt::format("TMPDIR={} {} {} {}", place, environment(), test::TOOL, words));
            EXPECT_EQ(answer.code, 0) << place << ": " << words << ": " << answer.text;
        }
    }
}

TEST_F(Cli, EndsWithItsCodeIfNothingCanBePrinted) {
    init();
    const auto codeOf = [&](const std::string& words) {
        return test::shell(fmt::format("{} '{}' {} >/dev/full 2>/dev/full", environment(), test::TOOL, words)).code;
    };
    EXPECT_EQ(codeOf("status"), 3);
    EXPECT_EQ(codeOf("--version"), 3);
    EXPECT_EQ(codeOf("nonsense"), 2);
    EXPECT_EQ(codeOf("--home /nowhere status"), 3);
}

TEST_F(Cli, ATimeThatNoCalendarHasEndsNothing) {
    init();
    sim::Database(home() / "tv.db", sim::Database::Access::Change).run("UPDATE state SET now = 9223372036854775807");
    EXPECT_EQ(tv("status").code, 0);
    EXPECT_THAT(tv("run -q").text, Not(HasSubstr("crashed")));
}

TEST_F(Cli, AnExportHasALineForEachServiceWhateverItsColumnsHold) {
    init();
    sim::Database(home() / "service-db/services.db", sim::Database::Access::Change)
        .run("UPDATE services SET conditional_access = '1' || char(10) || ':x', parameters = 'H' || char(13)");
    const std::string text = tv("export --format vdr").text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
}

TEST_F(Cli, TheApplicationAloneExplainsItselfToo) {
    const Answer nowhere = test::shell(environment() + test::APPLICATION);
    EXPECT_EQ(nowhere.code, 3);
    EXPECT_THAT(nowhere.text, AllOf(HasSubstr("no TV at"), HasSubstr("init --channels")));
    init();
    const Answer usage = test::shell(environment() + test::APPLICATION + " restore");
    EXPECT_EQ(usage.code, 2);
    EXPECT_THAT(usage.text, HasSubstr("'restore' is not of the form key=value"));
    EXPECT_EQ(test::shell(environment() + test::APPLICATION + " operation=backup").code, 0);
}

}  // namespace
