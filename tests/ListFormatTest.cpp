// Channel lists in the formats of other programs.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "simulator/base/Error.h"
#include "simulator/lineup/ChannelExport.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/lineup/ListFormats.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/TableEdit.h"
#include "simulator/lineup/Tuning.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using test::Strings;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

std::string described(const sim::Service& s) {
    return fmt::format("{} {} [{}] {} {} {} {} {}|{}|{} {} {}{}{}", s.number, s.name, s.groupName, s.identity,
                       s.frequency / 1000, s.symbolRate, s.parameters, s.videoPid, s.audioPids, s.textPids,
                       s.conditionalAccess, s.type, s.provider.empty() ? "" : " of " + s.provider,
                       s.renamed ? ", was " + s.broadcastName : "");
}

class ListFormats : public ::testing::Test {
protected:
    struct List {
        sim::ChannelList channels;
        sim::ChannelSummary summary;

        Strings services() const {
            Strings lines;
            for (const sim::Service& service : channels.services) {
                lines.push_back(described(service));
            }
            return lines;
        }
    };

    List read(const std::string& text, const sim::ListOptions& options = {}) const {
        test::write(folder / "list", text);
        return readFrom("list", options);
    }
    List readFrom(const std::string& name, const sim::ListOptions& options = {}) const {
        List list;
        list.summary = sim::readChannelList(folder / name, list.channels, options);
        return list;
    }
    std::string refusal(const std::string& text, const sim::ListOptions& options = {}) const {
        try {
            read(text, options);
            return "";
        } catch (const sim::Error& error) {
            return error.what();
        }
    }

    // What is said about a list: problems, then notes.
    Strings remarks(const List& list) const {
        Strings lines = list.summary.problems;
        lines.insert(lines.end(), list.summary.notes.begin(), list.summary.notes.end());
        for (std::string& line : lines) {
            line.erase(0, folder.path().string().size() + 1);
        }
        return lines;
    }

    test::TempFolder folder;
};

// Services with something in each column.
sim::ChannelSource sampleOf(const std::string& folder) {
    test::write(folder + "/sample.conf",
                ":News\n"
                "Eins, das \"Erste\",1;Anbieter:11362:HC23M5O35S1:S19.2E:22000:163+164=2:104=deu@3,105;106=deu:105:"
                "1702,9C4:11100:1:1011:0\n"
                ":@20 Films; and more\n"
                "Zwei|B;N:12188:VC34M2S0:S0.8W:27500:255:256:32:0:31020:1:1101:0\n"
                "=Kabel:410:C0M64:C:6900:101:102;103:104:0:28106:61441:1:0\n"
                "-Dach:506000:B8C23D12G4M16S0T8Y0:T:0:545:546:547:0:16418:8468:514:7\n"
                ":Radio\n"
                "Welle:12266:HC34M2S0:S19.2E:27500:0:861:0:0:28420:1:1093:0\n");
    return [folder](sim::ChannelSink& sink) {
        sim::ChannelList list;
        sim::readChannelList(folder + "/sample.conf", list);
        for (const std::string& group : list.groups) {
            sink.addGroup(group);
        }
        for (int sim::Service::*const place : sim::FAVOURITE_PLACES) {
            list.services[1].*place = 1;
        }
        list.services[3].favourite2 = 2;
        list.services[2].locked = true;
        list.services[3].hidden = true;
        list.services[4].renamed = true;
        list.services[4].broadcastName = "Radio 7";
        for (const sim::Service& service : list.services) {
            sink.addService(service);
        }
    };
}

class RoundTrip : public ListFormats, public ::testing::WithParamInterface<std::string> {};

TEST_P(RoundTrip, KeepsWhatTheFormatCarriesAndNamesTheRest) {
    const sim::ServiceDb db(folder / "db");
    db.create(sampleOf(folder.path().string()), "");
    std::string text;
    const Strings said = sim::exportChannels(db.services(), GetParam(), [&](std::string_view piece) { text += piece; });
    const List back = read(text);
    ASSERT_EQ(back.summary.format, GetParam()) << text;
    EXPECT_THAT(back.summary.problems, IsEmpty()) << text;

    const sim::ListFormat& format = sim::listFormat(GetParam());
    auto returned = back.channels.services.begin();
    ASSERT_THAT(back.channels.services, SizeIs(db.services().counts().services));
    db.services().forEach([&](const sim::Service& service) {
        for (const sim::ServiceColumn& column : sim::SERVICE_COLUMNS) {
            if (*column.json == '\0' || std::string(column.json) == "id" || std::string(column.json) == "identity") {
                continue;
            }
            const std::string sent = textOf(column, service);
            const std::string got = textOf(column, *returned);
            switch (sim::carriedBy(format, column)) {
                case sim::Carried::All:
                    EXPECT_EQ(got, sent) << column.json << " of " << service.name << "\n" << text;
                    break;
                case sim::Carried::Part:
                    EXPECT_EQ(sim::pidsOf(got), sim::pidsOf(sent)) << column.json << " of " << service.name;
                    break;
                case sim::Carried::Nothing:
                    ASSERT_THAT(said, SizeIs(1));
                    EXPECT_THAT(said[0], HasSubstr(column.label)) << "the sample has something in each column";
                    break;
            }
        }
        ++returned;
    });
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::ValuesIn(sim::exportFormats()),
                         [](const auto& param) { return param.param; });

TEST_F(ListFormats, ReadsPlaylists) {
    const List list = read(
        "#EXTM3U\n"
        "#EXTINF:-1 tvg-id=\"x\" tvg-chno=\"7\" group-title=\"News, daily\",Eins, HD\n"
        "#EXTVLCOPT:network-caching=1000\n"
        "dvb://1.3f3.2b5c\n"
        "#EXTINF:0,12. Das Zweite\n"
        "rtsp://10.0.0.2/?src=1&freq=11361.75&pol=h&ro=0.35&msys=dvbs2&mtype=8psk&plts=on&sr=22000&fec=23"
        "&pids=0,16,17,6210,6220,6230\n"
        "#EXTINF:-1 radio=\"true\",Welle\n"
        "#EXTGRP:Radio\n"
        "rtsp://10.0.0.2:554/?freq=450&bw=8&msys=dvbc&mtype=256qam&sr=6900&pids=0,5511,5500\n"
        "#EXTINF:-1 tvg-chno=\"7\",Web\nhttps://example.org/live.m3u8\n"
        "#EXTINF:-1 tvg-chno=\"7\",Drei\ndvb://1.3f3.2b5d;x\n");
    EXPECT_EQ(list.summary.format, "m3u");
    EXPECT_THAT(list.services(),
                ElementsAre("7 Eins, HD [News, daily] -1-1011-11100-0 0 0  0|0|0 0 tv",
                            "12 Das Zweite [] S-0-111361-0-6210 11361750 22000 HC23M5N1O35S1 0|0|0 0 tv",
                            "13 Welle [Radio] C-0-450-0-5500 450000 6900 B8M256 0|0|0 0 radio",
                            "14 Drei [] -1-1011-11101-0 0 0  0|0|0 0 tv"));
    EXPECT_THAT(remarks(list),
                ElementsAre("list:11: 'https://example.org/live.m3u8' names no service on the air; entry skipped",
                            "list:12: 'Drei' gets the number 14: 7 is taken or too high"));
    EXPECT_EQ(
        read("#EXTM3U\n#EXTINF:0,A\nrtsp://x/?freq=11361&pol=v&msys=dvbs&pids=101\n", {"", "S13.0E"}).services().at(0),
        "1 A [] S13.0E-0-211361-0-101 11361000 0 VS0 0|0|0 0 tv");
}

TEST_F(ListFormats, ReadsWhatTheDvbToolsScan) {
    const List list = read(
        "# scanned\n"
        "[Das Erste HD]\n\tSERVICE_ID = 11100\n\tNETWORK_ID = 1\n\tTRANSPORT_ID = 1011\n\tVCHANNEL = 5\n"
        "\tVIDEO_PID = 6110\n\tAUDIO_PID = 6120 6121\n\tPID_06 = 6122\n\tFREQUENCY = 11361750\n"
        "\tSYMBOL_RATE = 22000000\n\tINNER_FEC = 2/3\n\tMODULATION = PSK/8\n\tPILOT = AUTO\n\tROLLOFF = AUTO\n"
        "\tPOLARIZATION = HORIZONTAL\n\tSTREAM_ID = 3\n\tDELIVERY_SYSTEM = DVBS2\n\n"
        "[Dach]\nSERVICE_ID=16418\nFREQUENCY=506000000\nBANDWIDTH_HZ=1712000\nCODE_RATE_HP=AUTO\n"
        "TRANSMISSION_MODE=32K\nDELIVERY_SYSTEM=DVBT2\n"
        "[410MHz]\n\tFREQUENCY = 410000000\n\tDELIVERY_SYSTEM = DVBC/ANNEX_A\n"
        "[Sonne]\n\tSERVICE_ID = 1\n\tDELIVERY_SYSTEM = ISDBT\n");
    EXPECT_EQ(list.summary.format, "dvbv5");
    EXPECT_THAT(list.services(),
                ElementsAre("5 Das Erste HD [] S-1-1011-11100-0 11361750 22000 HC23M5P3S1 6110|6120,6121|0 0 tv",
                            "6 Dach [] T-0-506-16418-0 506000 0 B1712S1T32 0|0|0 0 radio"));
    EXPECT_THAT(remarks(list),
                ElementsAre("list:27: it has no SERVICE_ID: a transponder is no service; section skipped",
                            "list:30: delivery system 'ISDBT' is none of DVB or ATSC; section skipped"));
}

// The same services in both versions of lamedb, with bouquets beside it.
class Lamedb : public ListFormats {
protected:
    void writeBouquets() const {
        test::write(folder / "bouquets.tv",
                    "#NAME Bouquets (TV)\n"
                    "#SERVICE 1:7:1:0:0:0:0:0:0:0:FROM BOUQUET \"userbouquet.news.tv\" ORDER BY bouquet\n"
                    "#SERVICE 1:7:1:0:0:0:0:0:0:0:FROM BOUQUET \"../userbouquet.secret.tv\" ORDER BY bouquet\n"
                    "#SERVICE 1:7:1:0:0:0:0:0:0:0:FROM BOUQUET \"userbouquet.link.tv\" ORDER BY bouquet\n");
        test::write(folder / "userbouquet.news.tv",
                    "#NAME News\n"
                    "#SERVICE 1:64:0:0:0:0:0:0:0:0::A marker\n#DESCRIPTION A marker\n"
                    "#SERVICE 1:0:16:4022:202:2114:EEEE0000:0:0:0:\n#DESCRIPTION My roof\n"
                    "#SERVICE 4097:0:1:0:0:0:0:0:0:0:http%3a//example.org:Web\n"
                    "#SERVICE 1:0:19:2B5C:3F3:1:C00000:0:0:0:\n"
                    "#SERVICE 1:0:19:1:3F3:1:C00000:0:0:0:\n");
        test::write(folder / "secret", "#NAME Secret\n#SERVICE 1:0:2:6F04:445:1:C00000:0:0:0:\n");
        fs::create_symlink(folder / "secret", folder / "userbouquet.link.tv");
    }
    // `line` has a service of data.
    void expectServices(const List& list, int line) const {
        EXPECT_EQ(list.summary.format, "lamedb");
        EXPECT_THAT(
            list.services(),
            ElementsAre("1 My roof [News] T-8468-514-16418-0 506000 0 B8C23G4M16S0T8Y0 0|0|0 0 tv, was Dach",
                        "2 Das Erste HD [News] S19.2E-1-1011-11100-0 11361750 22000 HC23M5O35S1 5116|5121;5131|5141 "
                        "1702 tv of ARD",
                        "3 Welle [] S19.2E-1-1093-28420-0 12266000 27500 VC34S0 0|0|0 0 radio"));
        EXPECT_THAT(
            remarks(list),
            ElementsAre(fmt::format("list:{}: service type 12 is neither television nor radio; entry skipped", line),
                        "bouquets.tv:3: '../userbouquet.secret.tv' is not the name of a bouquet; entry skipped",
                        "userbouquet.news.tv:6: '4097:0:1:0:0:0:0:0:0:0:http%3a//example....' names no service "
                        "on the air; entry skipped",
                        "userbouquet.news.tv:8: '1:0:19:1:3F3:1:C00000:0:0:0:' is not in lamedb; entry skipped"));
    }
};

TEST_F(Lamedb, HasItsOrderAndGroupsFromBouquets) {
    writeBouquets();
    const List list = read(
        "eDVB services /4/\ntransponders\n"
        "00c00000:03f3:0001\n\ts 11361750:22000000:0:2:192:2:0:1:2:0:2\n/\n"
        "00c00000:0445:0001\n\ts 12266000:27500000:1:3:192:2:0\n/\n"
        "eeee0000:0202:2114\n\tt 506000000:0:1:5:1:1:3:0:2:0:0:0\n/\n"
        "end\nservices\n"
        "2b5c:00c00000:03f3:0001:25:0\nDas Erste HD\np:ARD,c:0013fc,c:011401,c:021415,c:04140b,C:1702,f:40\n"
        "6f04:00c00000:0445:0001:2:0\nWelle\np:\n"
        "0007:00c00000:0445:0001:12:0\nData\np:\n"
        "4022:eeee0000:0202:2114:22:0\nDach\np:\n"
        "end\nHave a lot of fun!\n");
    expectServices(list, 20);
    fs::rename(folder / "list", folder / "lamedb");
    EXPECT_THAT(readFrom("").services(), SizeIs(3)) << "the folder";
}

TEST_F(Lamedb, OfVersion5HasALineForEach) {
    writeBouquets();
    const List list = read(
        "eDVB services /5/\n# Transponders: t:...\n"
        "t:00c00000:03f3:0001,s:11361750:22000000:0:2:192:2:0:1:2:0:2\n"
        "t:00c00000:0445:0001,s:12266000:27500000:1:3:192:2:0\n"
        "t:eeee0000:0202:2114,t:506000000:0:1:5:1:1:3:0:2:0:0:0\n"
        "s:2b5c:00c00000:03f3:0001:25:0:0,\"Das Erste HD\",p:ARD,c:0013fc,c:011401,c:021415,c:04140b,C:1702,f:40\n"
        "s:6f04:00c00000:0445:0001:2:0:0,\"Welle\"\n"
        "s:0007:00c00000:0445:0001:12:0:0,\"Data\",p:\n"
        "s:4022:eeee0000:0202:2114:22:0:0,\"Dach\",p:\n");
    expectServices(list, 8);
}

TEST_F(ListFormats, ReadsTheObjectsOfTvheadend) {
    const std::string mux =
        R"("delsys":"DVB-S2","frequency":11361750,"symbolrate":22000000,"polarisation":"H","modulation":"PSK/8",)"
        R"("fec":"2/3","rolloff":"35","pilot":"AUTO","onid":1,"tsid":1011)";
    const std::string service =
        R"("sid":11100,"svcname":"Das Erste HD","provider":"ARD","dvb_servicetype":25,"stream":[)"
        R"({"pid":5101,"type":"H264"},{"pid":5102,"type":"MPEG2AUDIO","language":"deu"},{"pid":5103,"type":"AC3"},)"
        R"({"pid":5104,"type":"TELETEXT"},{"pid":1,"type":"CA","caidlist":[{"caid":5890}]}])";
    const std::string channel = R"("number":"7","name":"My first","services":["s1"],"tags":["t1"])";
    const Strings expected = {
        "7 My first [News] S19.2E-1-1011-11100-0 11361750 22000 HC23M5O35S1 5101|5102=deu;5103|5104 1702 tv of ARD, "
        "was "
        "Das Erste HD",
        "8 Welle [] S19.2E-1-1011-3-0 11361750 22000 HC23M5O35S1 0|0|0 0 radio"};

    const List array =
        read(R"([{"uuid":"n1","networkname":"Astra","orbital_pos":"19.2E"},{"uuid":"m1","network_uuid":"n1",)" + mux +
             R"(},{"uuid":"s1","multiplex_uuid":"m1",)" + service +
             R"(},{"uuid":"s2","multiplex_uuid":"m1","sid":3,"svcname":"Welle","dvb_servicetype":2},{"uuid":"c1",)" +
             channel + R"(},{"uuid":"c2","name":"Web","services":["s9"]},{"uuid":"t1","name":"News"}])");
    EXPECT_EQ(array.summary.format, "tvheadend");
    EXPECT_EQ(array.services(), expected);
    EXPECT_THAT(remarks(array), ElementsAre("list: channel 'Web' has no service on the air; object skipped"));

    const fs::path network = folder / "hts/input/dvb/networks/n1";
    for (const fs::path& made :
         {network / "muxes/m1/services", folder / "hts/channel/config", folder / "hts/channel"}) {
        fs::create_directories(made);
    }
    test::write(network / "config", R"({"networkname":"Astra","orbital_pos":"19.2E"})");
    test::write(network / "muxes/m1/config", "{" + mux + "}");
    test::write(network / "muxes/m1/services/s1", "{" + service + "}");
    test::write(network / "muxes/m1/services/s2", R"({"sid":3,"svcname":"Welle","dvb_servicetype":2})");
    test::write(network / "muxes/m1/services/s3", "{");
    test::write(folder / "hts/channel/config/c1", "{" + channel + "}");
    fs::create_directories(folder / "elsewhere");
    test::write(folder / "elsewhere/t1", R"({"name":"Secret"})");
    fs::create_symlink(folder / "elsewhere", folder / "hts/channel/tag");
    const List linked = readFrom("hts");
    EXPECT_THAT(linked.channels.groups, IsEmpty()) << "a link does not lead out of the folder";
    EXPECT_THAT(remarks(linked)[0], HasSubstr("services/s3: it is no JSON object; object skipped"));
    fs::remove(folder / "hts/channel/tag");
    fs::rename(folder / "elsewhere", folder / "hts/channel/tag");
    test::write(folder / "hts/channel/tag/t1", R"({"name":"News"})");
    EXPECT_EQ(readFrom("hts").services(), expected);
}

TEST_F(ListFormats, ReadsTablesOfSpreadsheets) {
    const List list = read(
        "\xef\xbb\xbfsep=;\r\nname;number;source;nid;tid;sid;frequencyHz;group;locked;favourite1;remark\r\n"
        "\"Eins; \"\"HD\"\"\r\n(new)\";3;S19.2E;1;1011;11100;11361000000;News;TRUE;1;mine\r\n"
        "'=Zwei;;C;0;0;5;410000000;;0;2;\r\n;;;;;;;;;;\r\nDrei;1;C;0;0;70000;410000000;;;;\r\n"
        "Vier;1;C;0;0;6;410000000;News;maybe;;\r\nF\xc3\xbcnf;1;C;0;0;7;410500000;News\r\n");
    EXPECT_EQ(list.summary.format, "csv");
    EXPECT_THAT(list.services(),
                ElementsAre("3 Eins; \"HD\"\n(new) [News] S19.2E-1-1011-11100-0 11361000 0  0|0|0 0 radio",
                            "4 =Zwei [] C-0-410-5-0 410000 0  0|0|0 0 radio",
                            "1 Fünf [News] C-0-410-7-0 410500 0  0|0|0 0 radio"));
    EXPECT_TRUE(list.channels.services[0].locked);
    EXPECT_EQ(list.channels.services[1].favourite1, 2);
    EXPECT_EQ(list.channels.services[2].frequencyUnit, 1000U);
    EXPECT_THAT(remarks(list), ElementsAre("list:6: the name is empty; row skipped",
                                           "list:7: sid '70000' is not a number from 0 to 65535; row skipped",
                                           "list:8: locked 'maybe' is neither 0 nor 1; row skipped",
                                           "list:2: column 'remark' is none of a service, and is not read"));
}

TEST_F(ListFormats, AreReadInAnyEncoding) {
    const std::string line = "M\xc3\xbchle:410:M64:C:6900:1:2:3:0:1:1:1:0\r\n";
    std::string wide = "\xff\xfe";
    for (const char c : std::string("M\xfchle:410:M64:C:6900:1:2:3:0:1:1:1:0\r\n")) {
        wide += std::string{c, '\0'};
    }
    EXPECT_EQ(read(wide).channels.services.at(0).name, "Mühle") << "UTF-16";
    EXPECT_EQ(read("\xcc" + line.substr(3), {"CP1251", ""}).channels.services.at(0).name, "Мhle");
    EXPECT_EQ(read("\xef\xbb\xbf" + line, {"UTF-8", ""}).channels.services.at(0).name, "Mühle");
    EXPECT_THAT(refusal(line + "\xff", {"UTF-8", ""}), HasSubstr("byte 40 is not UTF-8"));
    EXPECT_THAT(refusal(wide + "x"), HasSubstr("is not UTF-16LE")) << "half a character at the end";
    EXPECT_THAT(refusal(line, {"Klingon", ""}), HasSubstr("'Klingon' is no encoding that this machine knows"));
}

TEST_F(ListFormats, RefuseWhatMakesNoSense) {
    std::string deep;
    for (int i = 0; i < 10'000; ++i) {
        deep += "[{\"a\":";
    }
    const std::vector<std::pair<std::string, std::string>> lists = {
        {"", "no service in it; it looks like this: empty"},
        {"#EXTM3U\nhttp://x\n", "it looks like this: a playlist (M3U)"},
        {"#EXTM3U\n#EXTINF:0,A\ndvb://1.zz.3\n", "'dvb://1.zz.3' is no URI such as dvb://1.3f3.2b5c"},
        {"#EXTM3U\n#EXTINF:0,A\nsatip://x?freq=nan&msys=dvbs&pids=99\n", "freq 'nan' is not a number"},
        {"#EXTM3U\n#EXTINF:0,A\nsatip://x?freq=11361&msys=dvbs&pids=0,17\n", "it has no pid that tells it apart"},
        {"[A]\n\tSERVICE_ID = 70000\n\tDELIVERY_SYSTEM = DVBS\n", "SERVICE_ID '70000' is not a number from 0 to 65535"},
        {"[A]\n\tSERVICE_ID = 1\n\tFREQUENCY = 99999999999999999999\n\tDELIVERY_SYSTEM = DVBS\n", "FREQUENCY '9999"},
        {"eDVB services /3/\n", "'eDVB services /3/' is not lamedb of version 4 or 5"},
        {"eDVB services /4/\ntransponders\nc00000:1:1\n\ts x:1\n/\nend\n", "transponder: frequency 'x' is no number"},
        {"eDVB services /4/\nservices\n1:c00000:1:1:1:0\nA\np:\nend\n", "its transponder is not in the list"},
        {"eDVB services /5/\ns:\nt:,\ns:1,\"\n", "transport stream id '' is no number"},
        {deep, "it is not JSON"},
        {"[{\"sid\": 1, \"multiplex_uuid\": {}}, 7]", "its multiplex is not there"},
        {"{\"entries\": {\"sid\": 1}}", "no service in it"},
        {"name,identity,name\nA,C-1-1-1-0,B\n", "column 'name' stands twice in its header"},
        {"name;number\nA;1\n", "its header has no column identity"},
        {"name,identity\n\"A,C-1-1-1-0\n", "a quote is open at the end"},
        {"name,identity\n\"" + std::string(70'000, 'x') + "\",C\n", "bytes of a line"},
        {"name,sid,source\nA,1,C,2\n", "4 fields, but the header has 3"},
    };
    for (const auto& [text, reason] : lists) {
        EXPECT_THAT(refusal(text), HasSubstr(reason)) << text.substr(0, 100);
    }
    fs::create_directories(folder / "empty");
    EXPECT_THAT([&] { readFrom("empty"); }, ThrowsMessage<sim::Error>(HasSubstr("a folder without a channel list")));
}

TEST_F(ListFormats, NameFewProblemsOfEachKind) {
    std::string text = "#EXTM3U\n#EXTINF:0,A\ndvb://1.1.1\n";
    for (int i = 0; i < 500; ++i) {
        text += fmt::format("http://example.org/{}\n", i);
    }
    text += "dvb://1\n";
    const List list = read(text);
    EXPECT_EQ(list.summary.skipped, 501U);
    EXPECT_THAT(list.summary.problems, SizeIs(12)) << fmt::format("{}", fmt::join(list.summary.problems, "\n"));
    EXPECT_THAT(list.summary.problems.back(),
                AllOf(HasSubstr("... and 490 more"), HasSubstr("names no service on the air")));
}

class EditedTable : public ListFormats {
protected:
    EditedTable() {
        m_db.create(
            [](sim::ChannelSink& sink) {
                for (int i = 1; i <= 4; ++i) {
                    sim::Service service;
                    service.number = i;
                    service.name = fmt::format("Ch{}", i);
                    service.identity = fmt::format("C-1-1-{}-0", i);
                    service.type = "tv";
                    service.source = "C";
                    service.sid = i;
                    service.favourite1 = i < 3 ? 3 - i : 0;
                    sink.addService(service);
                }
            },
            "");
    }

    // Applies a table; returns what became of the list, or the error.
    std::string apply(const std::string& table, bool removesMissing = false) {
        test::write(folder / "edited", table);
        try {
            m_db.change([&](sim::Database& database) {
                edit = sim::applyTable(database, m_db.services(), folder / "edited", "", removesMissing);
            });
        } catch (const sim::Error& error) {
            return error.what();
        }
        std::string text;
        m_db.services().forEach([&](const sim::Service& s) {
            text += fmt::format("{}{} {}{}{}{}{}", text.empty() ? "" : ", ", s.number, s.name,
                                s.favourite1 == 0 ? "" : fmt::format(" f{}", s.favourite1), s.locked ? " locked" : "",
                                s.hidden ? " hidden" : "", s.renamed ? " renamed from " + s.broadcastName : "");
        });
        return text;
    }

    sim::TableEdit edit;

private:
    sim::ServiceDb m_db{folder / "db"};
};

TEST_F(EditedTable, GivesChannelsWhatTheirOwnerCanSet) {
    const auto edited = [&](std::size_t changed, std::size_t missing, std::size_t skipped) {
        EXPECT_EQ(edit.changed, changed);
        EXPECT_EQ(edit.missing, missing);
        EXPECT_EQ(edit.skipped, skipped) << fmt::format("{}", fmt::join(edit.problems, "\n"));
    };
    EXPECT_EQ(apply("identity;number;name;locked;favourite1\nC-1-1-3-0;1;Mine;1;7\nC-1-1-9-0;5;New;0;\n"
                    "C-1-1-1-0;9;Ch1;0;\n"),
              "1 Mine f2 locked renamed from Ch3, 2 Ch2 f1, 4 Ch4, 9 Ch1");
    edited(2, 2, 1);
    EXPECT_THAT(edit.problems.at(0), HasSubstr("edited:3: the TV has no channel 'C-1-1-9-0'; row skipped"));
    EXPECT_EQ(apply("identity,name\nC-1-1-4-0,Ch4\nC-1-1-3-0,\n"), "1 Ch4, 2 Ch3 f2 locked, 3 Ch2 f1, 9 Ch1")
        << "the order of the rows, and the broadcaster's name for none; who is in the way goes behind all";
    edited(2, 2, 0);
    EXPECT_EQ(apply("source,nid,tid,sid,hidden\nC,1,1,1,yes\nC,1,1,2,no\nC,1,1,2,no\nC,2,1,2,no\n", true),
              "1 Ch1 hidden, 2 Ch2 f1");
    edited(2, 2, 2);
    EXPECT_EQ(apply("identity,number,sid\nC-1-1-2-0,5,2\nC-1-1-1-0,5,7\n"), "5 Ch2 f1, 6 Ch1 hidden");
    EXPECT_THAT(edit.notes, ElementsAre(HasSubstr("'Ch1' gets the number 6: 5 is taken"),
                                        HasSubstr("service id of 'Ch1' is not the owner's to set, and stays")));
    EXPECT_THAT(apply("identity,number\nC-1-1-9-0,1\n", true), HasSubstr("none of its rows is a channel of the TV"));
    EXPECT_THAT(apply("number,name\n1,Ch1\n"), HasSubstr("its header has no column identity"));
    EXPECT_EQ(apply("identity\nC-1-1-2-0\n"), "1 Ch2 f1, 6 Ch1 hidden") << "what fails changes nothing";
}

// One service that VDR cannot take would cost its user the whole list.
TEST_F(ListFormats, VdrGetsNothingThatItRefusesAListFor) {
    const sim::ServiceDb db(folder / "db");
    db.create(
        [](sim::ChannelSink& sink) {
            for (const auto& [source, sid] :
                 {std::pair("S19.2E", 1), std::pair("S19.2E", 0), std::pair("S", 2), std::pair("", 3)}) {
                sim::Service service;
                service.name = service.identity = fmt::format("{}-{}", source, sid);
                service.type = "tv";
                service.source = source;
                service.sid = sid;
                service.number = sid + 1;
                sink.addService(service);
            }
        },
        "");
    std::string text;
    const Strings said = sim::exportChannels(db.services(), "vdr", [&](std::string_view piece) { text += piece; });
    EXPECT_EQ(text, ":@2\nS19.2E-1:0:I999:S19.2E:0:0:0:0:0:1:0:0:0\n") << "no field is empty either";
    EXPECT_THAT(said, ElementsAre("1 S19.2E-0: left out: VDR takes no service id 0",
                                  "3 S-2: left out: VDR takes no service without a source such as S19.2E, C or T",
                                  "4 -3: left out: VDR takes no service without a source such as S19.2E, C or T"));
}

}  // namespace
