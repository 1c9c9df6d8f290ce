// A backup and a restore whose disk fails them at a system call of the application or of the TV's services: they are
// killed there, or the call fails, or the disk is full from there on. The TV and the cloud stay whole, nobody is told a
// thing that is not so, and the next run works.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

#include "simulator/base/Descriptor.h"
#include "simulator/cloud/OpenCloud.h"
#include "tests/support/Invariants.h"
#include "tests/support/Tracer.h"

namespace fs = std::filesystem;

namespace {

using test::DiskCall;
using ::testing::AnyOf;
using ::testing::Each;

enum class Operation { Backup, Restore };

std::string nameOf(Operation operation) {
    return operation == Operation::Backup ? "Backup" : "Restore";
}

// There are hundreds in a row, and not the same number each time.
bool writesRecord(const DiskCall& call) {
    return call.name.find("write") != std::string::npos && call.path.find("/runs/") != std::string::npos;
}

bool needsSpace(const DiskCall& call) {
    static const std::set<std::string> FREE = {"unlink", "unlinkat", "rmdir", "fsync", "fdatasync", "ftruncate"};
    return FREE.count(call.name) == 0;
}

// TV A with a backup of its own in the cloud makes another one, or the fresh TV B restores it.
class DiskCase : public test::TwoTvs {
protected:
    explicit DiskCase(Operation operation)
        : m_operation(operation), m_tv(operation == Operation::Backup ? a : b), m_before(m_tv.setup()) {
        EXPECT_TRUE(a.backUp().succeeded());
        m_after = a.setup();
        m_runs = m_tv.open().runs().newest();
    }

    // A copy of the TV and its cloud as they are on disk now.
    test::TestTv copyOfAll() const {
        const fs::path place = folder / "copy";
        fs::remove_all(place);
        test::TestTv copy = m_tv;
        copy.home = place / m_tv.home.filename();
        copy.cloud = place / m_tv.cloud.filename();
        fs::create_directory(place);
        fs::copy(m_tv.home, copy.home, fs::copy_options::recursive);
        fs::copy(m_tv.cloud, copy.cloud, fs::copy_options::recursive);
        return copy;
    }

    int run(const test::TestTv& tv, const test::Fate& fate) const {
        const sim::Descriptor errors = sim::openFile(folder / "stderr", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        sim::ProcessOptions options =
            tv.application({"--reply", m_operation == Operation::Backup ? "operation=backup" : "operation=restore"});
        options.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // what is traced cannot be searched for leaks
        options.errors = errors.get();
        return test::runTraced(options, folder.path(), fate);
    }

    void expectWholeTv(const test::TestTv& tv) const { test::expectWholeTv(tv, m_before, m_after); }

    // What the caller and the cloud were told, according to the record, is true. Records may be missing.
    void expectTruth(const test::TestTv& tv) const {
        const sim::Tv opened = tv.open();
        const std::int64_t newest = opened.runs().newest();
        const sim::Run run = newest > m_runs ? *opened.runs().find(newest) : sim::Run();
        const bool isReplaced = tv.setup().services == m_after.services;
        const bool isStored = sim::openCloud(tv.cloud)->content().backups.size() == 2;
        if (m_operation == Operation::Restore) {
            test::expectTruth(run, isReplaced);
            EXPECT_FALSE(isStored);
        } else if (newest > m_runs) {
            EXPECT_TRUE(isStored || run.response != sim::Response::BackupCompleted);
            EXPECT_FALSE(isStored && saysFailure(opened.runs().record(newest).log()));
        }
    }

    static bool saysFailure(const std::vector<sim::LogRecord>& log) {
        return std::any_of(log.begin(), log.end(),
                           [](const auto& record) { return record.message == "operation fail"; });
    }

    // The next run succeeds and leaves nothing half-made.
    void expectRecovery(test::TestTv& tv) const {
        EXPECT_TRUE((m_operation == Operation::Backup ? tv.backUp() : tv.restore()).succeeded());
        EXPECT_TRUE(tv.setup() == m_after);
        EXPECT_THAT(test::expectWholeCloud(tv), Each(m_after.services->counts().services));
        test::expectTidy(tv);
    }

    const Operation m_operation;
    const test::TestTv& m_tv;
    const sim::Setup m_before;
    sim::Setup m_after;
    std::int64_t m_runs = 0;
};

class Kill : public DiskCase, public ::testing::WithParamInterface<Operation> {
protected:
    Kill() : DiskCase(GetParam()) {}
};

// A kill leaves what is on disk when the call is reached, so one run shows the remains of all kills.
TEST_P(Kill, AtEachCall) {
    int points = 0;
    bool isNew = true;  // the remains differ from those before by more than the record
    const int status = run(m_tv, [&](const DiskCall& call) {
        SCOPED_TRACE(fmt::format("{} {} {}", ++points, call.name, call.path));
        test::TestTv left = copyOfAll();
        expectWholeTv(left);
        EXPECT_THAT(left.setup().of(sim::Item::Ci), AnyOf(m_before.of(sim::Item::Ci), m_after.of(sim::Item::Ci)));
        expectTruth(left);
        if (isNew) {
            expectRecovery(left);
        }
        isNew = !writesRecord(call);
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_GT(points, 200);
    std::cout << "swept " << points << " crash points, the process killed\n";
}

enum class Victim { Caller, Other, Both };

// Kills at a call of a run. What one process does when the other is gone: it ends, too, or the run hangs.
class KillEither : public Kill {
protected:
    void killAt(const test::TestTv& tv, int point, Victim victim) const {
        std::set<int> processes;
        int count = 0;
        run(tv, [&](const DiskCall& call) {
            processes.insert(call.process);
            if (++count == point) {
                killOf(processes, call.process, victim);
            }
            return 0;
        });
        EXPECT_GE(count, point);
    }

private:
    static void killOf(const std::set<int>& processes, int caller, Victim victim) {
        for (const int process : processes) {
            if (victim == Victim::Both || (process == caller) == (victim == Victim::Caller)) {
                ::kill(process, SIGKILL);
            }
        }
    }
};

TEST_P(KillEither, OrBoth) {
    int last = 0;
    run(copyOfAll(), [&](const DiskCall&) {
        ++last;
        return 0;
    });
    constexpr int POINTS = 12;
    for (int point = last / 20; point < last; point += last / POINTS) {
        for (const Victim victim : {Victim::Caller, Victim::Other, Victim::Both}) {
            SCOPED_TRACE(fmt::format("{} of {}, victim {}", point, last, static_cast<int>(victim)));
            test::TestTv tv = copyOfAll();
            killAt(tv, point, victim);
            expectWholeTv(tv);
            expectTruth(tv);
            expectRecovery(tv);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(CrashPoint, KillEither, ::testing::Values(Operation::Backup, Operation::Restore),
                         [](const auto& each) { return nameOf(each.param); });

INSTANTIATE_TEST_SUITE_P(CrashPoint, Kill, ::testing::Values(Operation::Backup, Operation::Restore),
                         [](const auto& each) { return nameOf(each.param); });

struct Refusal {
    const char* name;
    int error;
    bool isLasting;
    std::size_t step;  // each so many points are tried; a full disk meets the same code as a failing one

    bool concerns(const DiskCall& call) const { return error != ENOSPC || needsSpace(call); }
};

class Refuse : public DiskCase, public ::testing::WithParamInterface<std::tuple<Operation, Refusal>> {
protected:
    Refuse() : DiskCase(std::get<0>(GetParam())) {}

    // Which calls to refuse, of those that do not write the record, from 1: of a name and a file the last, where
    // streams write what they still hold.
    std::vector<int> points() const {
        std::map<std::pair<std::string, std::string>, int> last;
        int count = 0;
        run(copyOfAll(), [&](const DiskCall& call) {
            count += writesRecord(call) ? 0 : 1;
            if (refusal.concerns(call) && !writesRecord(call)) {
                last[{call.name, call.path}] = count;
            }
            return 0;
        });
        std::vector<int> points;
        std::transform(last.begin(), last.end(), std::back_inserter(points),
                       [](const auto& each) { return each.second; });
        return points;
    }

    // By itself, or with an exception of the standard library's or the JSON library's that the application lets out.
    void expectEnd(int status) const {
        const std::string errors = test::readFile(folder / "stderr");
        if (WIFSIGNALED(status)) {
            EXPECT_EQ(WTERMSIG(status), SIGABRT) << errors;
            EXPECT_THAT(errors, ::testing::ContainsRegex("crashed: (std::filesystem|Json)"));
        } else {
            EXPECT_THAT(WEXITSTATUS(status), AnyOf(0, 3)) << errors;
        }
    }

    // The application does not see the last bytes of a file that it unpacks fail to reach the disk.
    void expectCiFiles(const test::TestTv& tv) const {
        const sim::Setup setup = tv.setup();
        for (const auto& [name, digest] : setup.of(sim::Item::Ci)) {
            const std::string source = test::readFile(a.home / "ci" / name);
            EXPECT_TRUE(digest == m_before.of(sim::Item::Ci).at(name) ||
                        source.rfind(test::readFile(tv.home / "ci" / name), 0) == 0)
                << name;
        }
    }

    const Refusal refusal = std::get<1>(GetParam());
};

TEST_P(Refuse, EachCall) {
    const std::vector<int> all = points();
    for (std::size_t i = 0; i < all.size(); i += refusal.step) {
        const int point = all[i];
        test::TestTv tv = copyOfAll();
        int count = 0;
        std::string refused = "none";
        const int status = run(tv, [&](const DiskCall& call) {
            count += writesRecord(call) ? 0 : 1;
            const bool isHit = count == point && !writesRecord(call);
            if (isHit) {
                refused = fmt::format("{} {} {}", point, call.name, call.path);
            }
            return (isHit || (refusal.isLasting && count >= point)) && refusal.concerns(call) ? refusal.error : 0;
        });
        SCOPED_TRACE(refused);
        EXPECT_NE(refused, "none");
        expectEnd(status);
        expectWholeTv(tv);
        expectCiFiles(tv);
        expectTruth(tv);
        expectRecovery(tv);
    }
    EXPECT_GT(all.size(), 40U);
    std::cout << "swept " << all.size() << " crash points, " << refusal.name << "\n";
}

INSTANTIATE_TEST_SUITE_P(
    CrashPoint, Refuse,
    ::testing::Combine(::testing::Values(Operation::Backup, Operation::Restore),
                       ::testing::Values(Refusal{"ENOSPC", ENOSPC, false, 3},
                                         Refusal{"ENOSPC_for_ever", ENOSPC, true, 3}, Refusal{"EIO", EIO, false, 2})),
    [](const auto& each) { return nameOf(std::get<0>(each.param)) + "_" + std::get<1>(each.param).name; });

}  // namespace
