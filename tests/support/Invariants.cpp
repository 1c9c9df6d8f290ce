#include "tests/support/Invariants.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <memory>

#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/Judge.h"

namespace fs = std::filesystem;

namespace test {

namespace {

template <typename Part>
void expectEither(const Part& now, const Part& before, const Part& after, const char* part) {
    EXPECT_TRUE(now == before || now == after) << part;
}

}  // namespace

void expectWholeTv(const TestTv& tv, const sim::Setup& before, const sim::Setup& after) {
    const sim::Setup now = tv.setup();
    expectEither(now.services, before.services, after.services, "services");
    for (const auto& [item, entries] : before.entries) {
        if (item != sim::Item::Ci) {
            expectEither(now.of(item), entries, after.of(item), sim::nameOf(item).data());
        }
    }
    expectEither(now.viewing.mode, before.viewing.mode, after.viewing.mode, "mode");
    expectEither(now.viewing.source, before.viewing.source, after.viewing.source, "source");
    expectEither(now.viewing.serviceId, before.viewing.serviceId, after.viewing.serviceId, "service");
    expectEither(now.viewing.category, before.viewing.category, after.viewing.category, "category");
    const std::string serial = "serial-" + tv.home.filename().string();
    EXPECT_EQ(tv.open().serviceDb().ipServices(),
              fmt::format("set={0}\nservice=http://set-{0}.invalid/live\n", serial));
}

void expectTidy(const TestTv& tv) {
    EXPECT_EQ(tree(tv.home / "service-db"), (Strings{"ipsrv", "services.db"}));
    for (const fs::path& place : {tv.home, tv.cloud / "Qr7tLw2ZkA/OOBERFChannelList"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
            EXPECT_EQ(entry.path().filename().string().find("building"), std::string::npos) << entry.path();
        }
    }
}

std::vector<std::uint64_t> expectWholeCloud(const TestTv& tv) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(tv.cloud);
    const sim::Tv opened = tv.open();
    std::vector<std::uint64_t> services;
    for (const sim::StoredBackup& backup : sim::lookAt(*store, store->content().backups)) {
        EXPECT_EQ(backup.damage, "");
        EXPECT_EQ(backup.metadata.front(), '{') << backup.id;
        const sim::Bundle bundle = sim::fetchBundle(*store, backup).bundle;
        for (const sim::UnpackedEntry& entry : bundle.entries()) {
            EXPECT_EQ(entry.problem, "") << backup.id << entry.name;
        }
        if (bundle.part(sim::Item::Channels).state == sim::PartState::Whole) {
            services.push_back(bundle.setup().services->counts().services);
        }
        for (const sim::Run& run : opened.runs().list()) {
            if (run.backup == backup.id && !bundle.isWhole()) {
                EXPECT_NE(sim::judge(opened, *store, run).outcome, sim::Outcome::Done) << backup.id;
            }
        }
    }
    return services;
}

void expectTruth(const sim::Run& run, bool isReplaced) {
    EXPECT_EQ(run.reply.value_or(isReplaced ? 0 : -1), isReplaced ? 0 : -1);
    EXPECT_THAT(run.reported,
                ::testing::AnyOf(sim::Reported::Nothing, isReplaced ? sim::Reported::Success : sim::Reported::Failure));
}

}  // namespace test
