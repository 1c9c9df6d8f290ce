// What crosses the socket between the application and the TV's services, also if one of them sends nonsense.
#include "simulator/wire/Channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "simulator/base/Descriptor.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(Wire, CarriesAllKindsOfValues) {
    using Values = std::tuple<wire::Text, wire::Text, wire::Category, std::list<std::string>, std::set<int>, double,
                              bool, wire::Answer<int, wire::Handle>>;
    const std::string bytes =
        wire::encode(wire::Text("ü"), wire::Text(), wire::Category{-1, UINT64_MAX, 2}, std::list<std::string>{"a", ""},
                     std::set<int>{-1, 7}, 0.1, true, wire::Answer<int, wire::Handle>{3, wire::Handle{5}});
    const Values values = wire::decode<Values>(bytes);
    EXPECT_EQ(std::get<0>(values), "ü");
    EXPECT_EQ(std::get<1>(values), std::nullopt);
    EXPECT_EQ(std::get<2>(values).param, UINT64_MAX);
    EXPECT_THAT(std::get<3>(values), ElementsAre("a", ""));
    EXPECT_THAT(std::get<4>(values), ElementsAre(-1, 7));
    EXPECT_EQ(std::get<5>(values), 0.1);
    EXPECT_EQ(std::get<7>(values).out->value, 5U);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_THROW(wire::decode<Values>(bytes.substr(0, size)), wire::ProtocolError) << size;
    }
    EXPECT_THROW(wire::decode<Values>(bytes + "x"), wire::ProtocolError);
}

TEST(Wire, RefusesValuesThatThereAreNot) {
    EXPECT_THROW(wire::decode<std::tuple<bool>>("\x02"), wire::ProtocolError);
    EXPECT_THROW(wire::decode<std::tuple<std::string>>(wire::encode(UINT32_MAX)), wire::ProtocolError);
    EXPECT_THROW(wire::decode<std::tuple<std::list<std::string>>>(wire::encode(UINT32_MAX)), wire::ProtocolError);
    const std::string huge(wire::MAX_TEXT_BYTES + 1, 'x');
    EXPECT_EQ(std::get<0>(wire::decode<std::tuple<std::string>>(wire::encode(huge))).size(), wire::MAX_TEXT_BYTES);
}

// Messages that come in pieces, and the end.
TEST(Channel, BringsMessagesWhole) {
    sim::DescriptorPair ends = sim::socketPair("the test");
    wire::Channel left(std::move(ends[0]));
    wire::Channel right(std::move(ends[1]));
    left.send(wire::Kind::Call, 7, "ab");
    left.send(wire::Kind::Notice, 8, "");
    EXPECT_EQ(right.next(), std::nullopt);
    right.receive();
    EXPECT_EQ(right.next()->body, "ab");
    EXPECT_EQ(right.next()->id, 8);
    EXPECT_FALSE(right.receiveNow());
    left.close();
    EXPECT_THROW(right.receive(), wire::Closed);
    EXPECT_THROW(right.send(wire::Kind::Answer, 0, ""), wire::Closed);
}

// The TV's services, and a test in the place of the application.
class Nonsense : public ::testing::Test {
protected:
    // What the services make of a greeting and what follows it. They end, or the test hangs.
    sim::Run runAfter(const std::function<void(wire::Channel&)>& send) {
        const sim::Process services = m_other.serveThisProcess();
        {
            wire::Channel channel{sim::Descriptor(std::stoi(::getenv("HALCYON_TV_SOCKET")))};
            channel.send(wire::Kind::Hello, 0, wire::encode(wire::Hello{wire::VERSION, ::getpid(), {"app"}}));
            channel.receive();
            EXPECT_EQ(channel.next()->kind, wire::Kind::Welcome);
            channel.send(wire::Kind::Logger, 0, wire::encode(wire::Logger{"File", "Function", 1, "before"}));
            send(channel);
        }
        EXPECT_EQ(services.wait(), 0);
        ::unsetenv("HALCYON_TV_SOCKET");
        const sim::Tv tv = m_other.open();
        const std::int64_t newest = tv.runs().newest();
        EXPECT_EQ(tv.runs().record(newest).log().at(0).message, "before") << "what came before is kept";
        return *tv.runs().find(newest);
    }

    test::TempFolder folder;
    const test::TestTv m_other{folder.path(), "other", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n"};
};

TEST_F(Nonsense, EndsTheRunAndLosesNoRecord) {
    const std::pair<wire::Kind, std::uint16_t> messages[] = {
        {wire::Kind::Call, 9999},    // no such call
        {wire::Kind::Call, 2},       // an event, which the application does not call
        {wire::Kind::Returned, 0},   // nothing has been delivered
        {wire::Kind::Answer, 0},     // the TV's own
        {wire::Kind{77}, 0},         // no such kind
        {wire::Kind::SystemLog, 0},  // without its values
        {wire::Kind::Call, static_cast<std::uint16_t>(wire::CallId::bnr_init)},
    };
    for (const auto& [kind, id] : messages) {
        const sim::Run run = runAfter([&, k = kind, i = id](wire::Channel& channel) {
            channel.send(k, i, "nonsense");
            EXPECT_THROW(channel.receive(), wire::Closed);
        });
        EXPECT_EQ(run.ended, sim::RunEnd::Crashed);
        EXPECT_THAT(run.detail, HasSubstr("makes no sense"));
    }
}

TEST_F(Nonsense, OfAFileLeadsNowhere) {
    test::write(folder / "list", "x");
    const std::string home = m_other.home;
    fs::create_directories(m_other.data);
    fs::create_symlink(folder.path(), m_other.data / "link");
    runAfter([&](wire::Channel& channel) {
        for (const std::string& path :
             {home + "/tv.db", home + "/apps/../tv.db", (folder / "made").string(), home + "/apps",
              (m_other.data / "link/made").string(), std::string("/dev/null"), std::string(), std::string("\0", 1)}) {
            channel.send(wire::Kind::Call, static_cast<std::uint16_t>(wire::CallId::get_service_db),
                         wire::encode(wire::Text(path)));
            channel.receive();
            const auto answer = wire::decode<std::tuple<wire::Answer<int>>>(channel.next()->body);
            EXPECT_EQ(std::get<0>(answer).result, -1) << path;
        }
    });
    EXPECT_FALSE(fs::exists(folder / "made"));
    EXPECT_EQ(m_other.open().serial(), "serial-other");
}

}  // namespace
