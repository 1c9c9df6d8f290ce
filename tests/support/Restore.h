// Restores: TV A's backup is in the cloud, TV B is fresh.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "simulator/base/Archive.h"
#include "tests/support/TestTv.h"

namespace test {

inline const Strings CLOSING = {"5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success"};
inline const Strings ENDING = {"5 bnr_callback_deregister success. Handler=[1]", "5 bnr_deinit success",
                               "5 app_control_reply_to_launch_request(-1) success", "5 response came. Finish app"};

// The lines of all of them.
inline Strings joined(const std::vector<Strings>& parts) {
    Strings all;
    for (const Strings& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// TV A's backup is in the cloud; TV B is fresh.
class Restore : public TwoTvs {
protected:
    Restore() {
        EXPECT_TRUE(a.backUp().succeeded());
        fresh = b.setup();
        freshViewing = b.open().viewing();
        ipServices = b.open().serviceDb().ipServices();
    }

    // Everything except the viewing state.
    void expectRestored() {
        sim::Setup expected = a.setup();
        expected.viewing = b.open().viewing();
        EXPECT_EQ(b.setup(), expected);
        EXPECT_EQ(b.open().serviceDb().ipServices(), ipServices) << "the IP services are the set's own";
        EXPECT_THAT(b.dataFiles(), ::testing::IsEmpty());
        EXPECT_THAT(b.failureFiles(), ::testing::IsEmpty());
    }

    void expectUntouched() {
        EXPECT_EQ(b.setup(), fresh);
        EXPECT_TRUE(b.open().viewing() == freshViewing);
    }

    // The backup was refused before B was changed, and B keeps the archive.
    void expectRefused(const RunResult& run) {
        expectUntouched();
        EXPECT_EQ(run.reply, -1);
        EXPECT_EQ(run.count("app_control_reply_to_launch_request"), 1);
        EXPECT_EQ(run.reported, sim::Reported::Failure);
        EXPECT_EQ(run.ended, sim::RunEnd::Exit);
        EXPECT_THAT(b.failureFiles(), ::testing::SizeIs(1));
    }

    void setMetadata(const std::string& text) { write(storedBackup() / "metadata.json", text); }

    // Rebuilds the stored bundle after `change` has edited its unpacked files.
    void changeBundle(const std::function<void(const std::filesystem::path&)>& change) {
        const std::filesystem::path work = folder / "bundle";
        std::filesystem::create_directories(work);
        const std::filesystem::path bundle = storedBackup() / "bundle.zip";
        std::vector<std::filesystem::path> files;
        for (const std::string name : {"ServiceDB.zip", "vconf.json", "issDB.zip"}) {
            ASSERT_TRUE(sim::extractEntry(bundle, name, work / name));
        }
        change(work);
        for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(work)) {
            files.push_back(entry.path());
        }
        sim::writeArchive(bundle, files);
    }

    // Runs a restore of a bundle with this settings file.
    RunResult restoreSettings(const std::string& text) {
        changeBundle([&](const std::filesystem::path& work) { write(work / "vconf.json", text); });
        return b.restore();
    }

    sim::Setup fresh;
    sim::Viewing freshViewing;
    std::string ipServices;
};

}  // namespace test
