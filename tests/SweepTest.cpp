// For every platform call of a run, and each failure that it can have: the run with that one call failing. And the
// power cut at each step that changes the disk.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <tuple>

#include "simulator/base/Archive.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/reports/BackupReport.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using sim::SetUp;
using test::Outcome;

struct Fault {
    std::string call;
    std::string failure;
    int nth;
};

// Each failure of each call that a healthy run makes, wherever it makes it.
std::vector<Fault> faultsOf(const Outcome& healthy) {
    std::map<std::string, std::vector<std::string>> failures;
    for (const sim::PlatformCall* call : sim::platformCalls()) {
        failures[std::string(call->name)] = call->failureList();
    }
    std::vector<Fault> faults;
    std::map<std::string, int> counts;
    for (const sim::CallRecord& call : healthy.calls) {
        const int nth = ++counts[call.name];
        EXPECT_EQ(failures.count(call.name), 1U) << call.name;
        for (const std::string& failure : failures[call.name]) {
            faults.push_back({call.name, failure, nth});
        }
    }
    return faults;
}

class Sweep : public test::TwoTvs {
protected:
    Sweep() {
        // Something worth restoring beside the channels.
        EXPECT_TRUE(a.backUp().succeeded());
        pristine = folder / "pristine";
    }

    // Puts TV and cloud back to what they were at the sweep's begin.
    void keep(const test::TestTv& tv) {
        fs::create_directories(pristine);
        fs::copy(tv.home, pristine / "home", fs::copy_options::recursive);
        fs::copy(tv.cloud, pristine / "cloud", fs::copy_options::recursive);
    }
    void reset(const test::TestTv& tv) const {
        fs::remove_all(tv.home);
        fs::remove_all(tv.cloud);
        fs::copy(pristine / "home", tv.home, fs::copy_options::recursive);
        fs::copy(pristine / "cloud", tv.cloud, fs::copy_options::recursive);
    }

    // Every backup in the store is one of A's or B's that can be read to its end.
    void expectWholeCloud(std::size_t fewest, std::size_t most) const {
        const std::unique_ptr<sim::CloudStore> store = sim::openCloud(a.cloud);
        const std::vector<sim::StoredBackup> backups = store->list();
        EXPECT_GE(backups.size(), fewest);
        EXPECT_LE(backups.size(), most);
        for (const sim::StoredBackup& backup : backups) {
            ASSERT_EQ(backup.damage, "");
            EXPECT_THAT(sim::reportOn(*store, backup).services, ::testing::AnyOf(3U, 1U)) << backup.id;
            EXPECT_EQ(backup.metadata.front(), '{') << backup.id;
        }
    }

    // Each part of the TV is as it was or as it is restored.
    void expectWholeTv(test::TestTv& tv, const sim::SetUp& before, const sim::SetUp& after) {
        const sim::SetUp now = tv.setUp();
        EXPECT_TRUE(now.services == before.services || now.services == after.services);
        EXPECT_TRUE(now.iss == before.iss || now.iss == after.iss);
        EXPECT_TRUE(now.ci == before.ci || now.ci == after.ci);
        for (std::size_t i = 0; i < now.favourites.size(); ++i) {
            EXPECT_TRUE(now.favourites[i] == before.favourites[i] || now.favourites[i] == after.favourites[i]) << i;
        }
        EXPECT_EQ(tv.open().serviceDb().ipServices(), ipServices);
        const sim::Viewing on = tv.open().viewing();
        const auto isOf = [&](const sim::Viewing& state, auto part) { return part(on) == part(state); };
        const auto isOfEither = [&](auto part) { return isOf(viewingBefore, part) || isOf(viewingAfter, part); };
        EXPECT_TRUE(isOfEither([](const sim::Viewing& v) { return v.mode; }));
        EXPECT_TRUE(isOfEither([](const sim::Viewing& v) { return v.source; }));
        EXPECT_TRUE(isOfEither([](const sim::Viewing& v) { return v.serviceId; }));
        EXPECT_TRUE(isOfEither([](const sim::Viewing& v) { return v.category; }));
    }

    // Nothing half-made lies about.
    void expectTidy(const test::TestTv& tv) const {
        EXPECT_EQ(test::tree(tv.home / "service-db"), (std::vector<std::string>{"ipsrv", "services.db"}));
        for (const fs::path& place : {tv.home, storedBackup().parent_path()}) {
            for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
                EXPECT_EQ(entry.path().filename().string().find("building"), std::string::npos) << entry.path();
            }
        }
    }

    fs::path pristine;
    std::string ipServices;
    sim::Viewing viewingBefore;
    sim::Viewing viewingAfter;
};

bool isCrash(const Fault& fault) {
    return fault.failure == "throw" || fault.call == "vconf_get_str";
}

std::string describe(const Fault& fault) {
    return fmt::format("{} {} at call {}", fault.call, fault.failure, fault.nth);
}

// How a backup is designed to end under a fault.
sim::RunEnd endOfBackup(const Fault& fault) {
    if (isCrash(fault)) {
        return sim::RunEnd::Crashed;
    }
    if (fault.call == "ui_app_main") {
        return sim::RunEnd::Refused;
    }
    return fault.failure == "lost" ? sim::RunEnd::Waiting : sim::RunEnd::Exit;
}

TEST_F(Sweep, BackupUnderEachFault) {
    const sim::SetUp before = a.setUp();
    ipServices = a.open().serviceDb().ipServices();
    viewingBefore = viewingAfter = a.open().viewing();
    keep(a);
    const std::vector<Fault> faults = faultsOf(a.backUp());
    for (const Fault& fault : faults) {
        SCOPED_TRACE(describe(fault));
        reset(a);
        a.fault(fault.call, fault.failure, fault.nth);
        const Outcome run = a.backUp();
        EXPECT_EQ(a.faultsFired(), 1);
        EXPECT_EQ(run.ended, endOfBackup(fault));
        EXPECT_EQ(run.reply, std::nullopt);
        EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 0);
        expectWholeTv(a, before, before);
        expectTidy(a);
        expectWholeCloud(run.succeeded() ? 2 : 1, 2);
    }
    std::cout << "swept " << faults.size() << " backups\n";
    EXPECT_GT(faults.size(), 90U);
}

class RestoreSweep : public Sweep, public ::testing::WithParamInterface<bool> {
protected:
    void begin() {
        before = b.setUp();
        after = a.setUp();
        ipServices = b.open().serviceDb().ipServices();
        viewingBefore = b.open().viewing();
        viewingAfter = a.open().viewing();
        b.open().setScanning(GetParam());
        keep(b);
    }

    Outcome restore() {
        const bool withScan = GetParam();
        return b.launch({"operation=restore", withScan ? "scan_activated=1" : "scan_activated=0", "--reply"});
    }

    // How a restore is designed to end under a fault.
    static sim::RunEnd end(const Fault& fault, const Outcome& run) {
        if (isCrash(fault)) {
            return sim::RunEnd::Crashed;
        }
        if (fault.call == "ui_app_main") {
            return sim::RunEnd::Refused;
        }
        if (fault.failure == "lost" || (fault.call == "tv_signal" && fault.failure == "null")) {
            return sim::RunEnd::Waiting;
        }
        const bool readAsScan = GetParam() && fault.call != "app_control_get_extra_data";
        const bool restored = run.count("bnr_report_success") == 1;
        if (!restored || readAsScan) {
            return sim::RunEnd::Exit;
        }
        // A session that could not be closed is one to wait for.
        return fault.call == "bnr_deinit" ? sim::RunEnd::Waiting : sim::RunEnd::Reclaimed;
    }

    // The caller got at most one reply, and it says what became of the channel database.
    static void expectTruth(const Outcome& run, bool replaced) {
        EXPECT_LE(run.count("app_control_reply_to_launch_request"), 1);
        if (run.reply) {
            EXPECT_EQ(*run.reply, replaced ? 0 : -1);
        }
        if (run.reported == "success") {
            EXPECT_TRUE(replaced);
        }
    }

    // The downloaded archive is removed on success, and kept in the failure folder otherwise, if it could be read.
    void expectArchive(const Outcome& run, const Fault& fault) {
        const bool downloaded = run.response == sim::Response::RestoreData && fault.failure != "damage=missing" &&
                                fault.failure != "damage=dangling" && fault.failure != "no-data";
        if (!downloaded || run.ended == sim::RunEnd::Crashed || fault.failure == "null") {
            return;
        }
        const bool failed = run.reported != "success" && run.count("bnr_report_success") == 0;
        EXPECT_EQ(b.failureFiles().size(), failed ? 1U : 0U);
        for (const std::string& file : b.dataFiles()) {
            EXPECT_THAT(file, ::testing::StartsWith("temp/"));
        }
    }

    sim::SetUp before;
    sim::SetUp after;
};

TEST_P(RestoreSweep, UnderEachFault) {
    begin();
    const std::vector<Fault> faults = faultsOf(restore());
    for (const Fault& fault : faults) {
        SCOPED_TRACE(describe(fault));
        reset(b);
        b.fault(fault.call, fault.failure, fault.nth);
        const Outcome run = restore();
        EXPECT_EQ(b.faultsFired(), 1);
        EXPECT_EQ(run.ended, end(fault, run));
        if (run.operation == "restore") {
            expectTruth(run, b.setUp().services == after.services);
            expectArchive(run, fault);
        }
        expectWholeTv(b, before, after);
        expectTidy(b);
        // A request that cannot be read is a backup, by design.
        expectWholeCloud(1, run.says("5 Do backup") ? 2 : 1);
    }
    std::cout << "swept " << faults.size() << " restores\n";
    EXPECT_GT(faults.size(), 120U);
}

// After the power went at any moment, a part is as it was or as it is restored, and the next restore works.
TEST_P(RestoreSweep, UnderEachPowerCut) {
    begin();
    int cuts = 0;
    for (;; ++cuts) {
        SCOPED_TRACE(cuts + 1);
        reset(b);
        b.fault("disk", "cut", cuts + 1);
        const Outcome run = restore();
        if (b.faultsFired() == 0) {
            EXPECT_TRUE(run.succeeded());
            break;
        }
        EXPECT_EQ(run.ended, sim::RunEnd::Crashed);
        expectTruth(run, b.setUp().services == after.services);
        expectWholeTv(b, before, after);
        expectWholeCloud(1, 1);
        b.clearFaults();
        restore();
        EXPECT_TRUE(b.setUp() == after);
        expectTidy(b);
    }
    std::cout << "swept " << cuts << " power cuts\n";
    EXPECT_GE(cuts, 8);
}

INSTANTIATE_TEST_SUITE_P(Sweep, RestoreSweep, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "WithScan" : "WithoutScan"; });

TEST_F(Sweep, BackupUnderEachPowerCut) {
    keep(a);
    int cuts = 0;
    for (;; ++cuts) {
        SCOPED_TRACE(cuts + 1);
        reset(a);
        a.fault("disk", "cut", cuts + 1);
        a.backUp();
        if (a.faultsFired() == 0) {
            break;
        }
        expectWholeCloud(1, 2);
        a.clearFaults();
        EXPECT_TRUE(a.backUp().succeeded());
        expectWholeCloud(2, 3);
        expectTidy(a);
    }
    std::cout << "swept " << cuts << " power cuts\n";
    EXPECT_GE(cuts, 5);
}

}  // namespace
