// What a bundle can reach: the application's two folders, and nothing else, whatever its entries are called. Without
// Landlock, too.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <map>

#include "simulator/base/Digest.h"
#include "tests/support/Archives.h"
#include "tests/support/CommandLine.h"
#include "tests/support/Restore.h"
#include "tests/support/WithoutLandlock.h"

namespace fs = std::filesystem;

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

enum class Kernel { WithLandlock, WithoutLandlock };

class Escape : public test::Restore, public ::testing::WithParamInterface<Kernel> {
protected:
    // The TV and the cloud, but for what the application may change and the records of runs, by path.
    std::map<std::string, std::string> content() const {
        std::map<std::string, std::string> files;
        for (const fs::path& place : {b.home, b.cloud}) {
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
                const std::string path = entry.path().lexically_relative(folder.path());
                const bool isFree =
                    path.rfind("b/apps", 0) == 0 || path.rfind("b/tmp", 0) == 0 || path.rfind("b/runs/", 0) == 0;
                if (!isFree) {
                    files[path] = entry.is_regular_file() ? sim::digestOf(entry.path()) : "";
                }
            }
        }
        return files;
    }

    static test::Strings changed(const std::map<std::string, std::string>& before,
                                 const std::map<std::string, std::string>& after) {
        test::Strings paths;
        for (const auto* each : {&before, &after}) {
            for (const auto& [path, digest] : *each) {
                const auto* other = each == &before ? &after : &before;
                if (other->count(path) == 0 || other->at(path) != digest) {
                    paths.push_back(path);
                }
            }
        }
        return paths;
    }

    void onKernel(const std::function<void()>& action) {
        if (GetParam() == Kernel::WithoutLandlock) {
            // Leaks cannot be looked for where no process may be traced.
            ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
            test::withoutLandlock(action);
            ::unsetenv("ASAN_OPTIONS");
        } else if (test::hasLandlock()) {
            action();
        }
    }

    // Names of entries that lead from where a bundle is unpacked to all that there is.
    test::Strings names() const {
        const fs::path unpacked = b.data / "temp";
        test::Strings names;
        for (const auto& [path, digest] : content()) {
            names.push_back((folder / path).lexically_relative(unpacked));
        }
        const std::string root = fs::path("/").lexically_relative(unpacked);
        for (const std::string place :
             {"made", "tmp/halcyon-made", "dev/halcyon-made", "dev/shm/halcyon-made", "etc/halcyon-made",
              "proc/self/mem", "proc/self/oom_score_adj", "proc/sys/kernel/printk", "dev/full", "dev/kmsg"}) {
            names.push_back(fs::path(root) / place);
        }
        names.push_back((b.home / "made").lexically_relative(unpacked));
        return names;
    }
};

TEST_P(Escape, ByNoNameOfAnEntry) {
    onKernel([&] {
        for (const std::string& name : names()) {
            test::makeArchive(storedBackup() / "bundle.zip", {{name, "escaped"}});
            const auto before = content();
            const test::RunResult run = b.restore();
            EXPECT_THAT(changed(before, content()), IsEmpty()) << name;
            EXPECT_EQ(run.reported, sim::Reported::Failure) << name;
            EXPECT_EQ(run.ended, sim::RunEnd::Exit) << name;
        }
        for (const char* place :
             {"/made", "/tmp/halcyon-made", "/dev/halcyon-made", "/dev/shm/halcyon-made", "/etc/halcyon-made"}) {
            EXPECT_FALSE(fs::exists(place)) << place;
        }
    });
}

TEST_P(Escape, IsWhatTheOptionForItAllows) {
    onKernel([&] {
        test::makeArchive(storedBackup() / "bundle.zip", {{"../../../../../escaped", "x"}});
        b.isConfined = false;
        b.restore();
        EXPECT_TRUE(fs::exists(folder / "escaped"));
    });
}

INSTANTIATE_TEST_SUITE_P(Kernels, Escape, ::testing::Values(Kernel::WithLandlock, Kernel::WithoutLandlock),
                         [](const auto& each) {
                             return each.param == Kernel::WithLandlock ? "WithLandlock" : "WithoutLandlock";
                         });

class Confined : public test::CommandLine {
protected:
    Confined() {
        init();
        tv("run -q");
    }

    fs::path bundle() const {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder / "cloud")) {
            if (entry.path().filename() == "bundle.zip") {
                return entry.path();
            }
        }
        return {};
    }
};

TEST_F(Confined, OutputIsShownAsTheApplicationsOwn) {
    const std::string forged = "{\"outcome\": \"done\"}\x1b[2J\n";
    test::makeArchive(bundle(), {{"../../../../../../../../../../../../dev/stdout", forged},
                                 {"../../../../../../../../../../../../proc/self/fd/2", forged},
                                 {"../../../../../../../../../../../../proc/self/fd/0", forged}});
    const test::Answer output = tv("run operation=restore --json 2>/dev/null");
    EXPECT_EQ(output.text.front(), '{');
    EXPECT_THAT(output.text, AllOf(HasSubstr("\"outcome\" : \"failed\""), Not(HasSubstr("forged"))));
    const test::Answer log = tv("-v run operation=restore 2>&1 >/dev/null");
    EXPECT_THAT(log.text,
                AllOf(HasSubstr("halcyon-lineup printed: {\"outcome\": \"done\"}\\x1b[2J\n"), Not(HasSubstr("\x1b"))));
}

// The application, stopped while it waits for the cloud.
TEST_F(Confined, ProcessHasNoKeysAndReachesNothing) {
    const std::string keys = "AWS_SECRET_ACCESS_KEY=secret-of-the-cloud ";
    const std::string run = environment() + keys + test::APPLICATION + " --realtime";
    const std::string pipe = (folder / "pipe").string();
    const std::string script = "mkfifo " + pipe + "; " + run + " >" + pipe +
                               " 2>&1 & pid=$!; { read -r line; cat /proc/$pid/environ /proc/$pid/status; "
                               "ls -l /proc/$pid/fd; kill -KILL $pid; } <" +
                               pipe;
    const test::Answer seen = test::shell("sh -c '" + script + "'");
    EXPECT_THAT(seen.text, AllOf(HasSubstr("NoNewPrivs:\t1"), HasSubstr("Seccomp:\t2")));
    EXPECT_THAT(seen.text, AllOf(Not(HasSubstr("secret-of-the-cloud")), Not(HasSubstr(home().string() + "/tv.db"))));
}

}  // namespace
