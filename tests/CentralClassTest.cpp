// The dispatch and the central class in this process, for what no launch request leads to. It resolves its folders and
// captures the TV before main(), so it has an executable of its own, in which a TV is there before everything else.
#include "src/HalcyonLineup.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "simulator/base/Archive.h"
#include "tests/support/BrokenFolder.h"
#include "tests/support/TestTv.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

// main() of src/AppMain.cpp.
int application_main(int argc, char** argv);

namespace {

using ::testing::Contains;

struct EarlyTv {
    EarlyTv() {
        ::setenv("HALCYON_TV_HOME", tv.home.c_str(), 1);
        ::setenv("HALCYON_CLOUD", tv.cloud.c_str(), 1);
    }
    test::TempFolder folder;
    test::TestTv tv{folder.path(), "tv", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n"};
};
__attribute__((init_priority(101))) EarlyTv early;

// The text of the operation until it is freed, and the last message before that.
char* operationText = nullptr;
std::string messageBeforeFree;

// What the platform was handed as user data.
void* cloudUserData = nullptr;
void* signalUserData = nullptr;

// A subscriber that nobody signals.
class Subscriber final : public ISignalSubscriber {
public:
    int Subscribe(ESignalType /*type*/, void* appData, int /*profile*/, int /*option*/,
                  SignalCallback /*callback*/) override {
        signalUserData = appData;
        return 1;
    }
    int Unsubscribe(ESignalType /*type*/, int /*profile*/, int /*option*/, SignalCallback /*callback*/) override {
        return 1;
    }
};

// Lets the cloud service answer a restore with TV's own channel database, as a bundle that can be read but not removed.
class Answer {
public:
    Answer() {
        const fs::path archive = early.folder / "ServiceDB.zip";
        early.tv.open().serviceDb().snapshot(archive);
        sim::writeArchive(early.folder / "bundle.zip", {archive});
        m_descriptor = ::open((early.folder / "bundle.zip").c_str(), O_RDONLY | O_CLOEXEC);
        m_path = fmt::format("/proc/self/fd/{}", m_descriptor);
    }
    ~Answer() { ::close(m_descriptor); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    void deliverTo(CHalcyonLineup& lineup) {
        bnr_resp_data_s data = {R"({"version":"0.3","setting":{"antenna":1}})", m_path.c_str()};
        CHalcyonLineup::sm_BnrCallback(static_cast<bnr_response_e>(102), &data, &lineup);
    }

private:
    int m_descriptor;
    std::string m_path;
};

TEST(CentralClass, ResolvesItsFoldersOnceAndForAll) {
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH, early.tv.data.string());
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH_TMP, early.tv.failures.string());
}

TEST(Dispatch, FreesTheOperationBeforeTheFailureIsHandled) {
    EXPECT_EQ(application_main(0, nullptr), 0);
    EXPECT_EQ(messageBeforeFree, "6 appCaller == nullptr");
    EXPECT_THAT(test::messages(), Contains("5 operation fail"));
}

TEST(CentralClass, RefusesARestoreWithoutRequest) {
    EXPECT_FALSE(CHalcyonLineup().Restore(nullptr));
    EXPECT_EQ(test::messages().back(), "6 appCaller == nullptr");
}

TEST(CentralClass, HasRestoredWhateverBecomesOfTheArchive) {
    CHalcyonLineup lineup;
    Answer().deliverTo(lineup);
    EXPECT_THAT(test::messages(), Contains(::testing::StartsWith("6 remove(/proc/self/fd/")));
    EXPECT_THAT(test::messages(), Contains("5 m_Restore success"));
}

TEST(CentralClass, LetsACiFolderThatCannotBeReadThrow) {
    const fs::path ci = early.tv.data / "temp/ci";
    fs::create_directories(ci);
    ASSERT_EQ(::chmod(ci.c_str(), 0100), 0);
    CHalcyonLineup lineup;
    {
        const test::WithoutPrivileges unprivileged;
        EXPECT_THROW(Answer().deliverTo(lineup), fs::filesystem_error);
    }
    ASSERT_EQ(::chmod(ci.c_str(), 0700), 0);
    test::write(ci / "file", "x");
    {
        const test::BrokenFolder broken(ci, 3);
        EXPECT_THROW(Answer().deliverTo(lineup), fs::filesystem_error);
    }
    EXPECT_THAT(test::messages(), Contains(::testing::StartsWith("5 ReplaceServiceDb(")));
    fs::remove_all(early.tv.data);
}

// All state is class-wide, so that any other pointer would do as well until somebody adds a member.
TEST(CentralClass, HandsItselfToTheServices) {
    sim::Tv(early.tv.home).setScanning(true);
    app_control_s* request = nullptr;
    app_control_create(&request);
    CHalcyonLineup lineup;
    EXPECT_TRUE(lineup.Restore(request));
    EXPECT_EQ(cloudUserData, &lineup);
    Answer().deliverTo(lineup);
    EXPECT_EQ(signalUserData, &lineup);
    app_control_destroy(request);
}

}  // namespace

// The linker leads the application's calls here.
extern "C" {
// A launch without a request.
int __wrap_ui_app_main(int /*argc*/, char** /*argv*/, const ui_app_callbacks* callbacks, void* userData) {
    callbacks->control(nullptr, userData);
    return 0;
}

// Of every request: a restore, and a scan is running.
int __wrap_app_control_get_extra_data(app_control_s* /*request*/, const char* key, char** value) {
    const bool isOperation = std::strcmp(key, "operation") == 0;
    *value = ::strdup(isOperation ? "restore" : "1");
    if (isOperation) {
        operationText = *value;
    }
    return 0;
}

void __real_free(void* memory);
void __wrap_free(void* memory) {
    if (memory != nullptr && memory == operationText) {
        operationText = nullptr;
        messageBeforeFree = test::messages().back();
    }
    __real_free(memory);
}

int __real_bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId);
int __wrap_bnr_callback_register(const char* id, bnr_response_cb callback, void* userData, int* handlerId) {
    cloudUserData = userData;
    return __real_bnr_callback_register(id, callback, userData, handlerId);
}

// TVServiceAPI::CreateSignalSubscriber
int __wrap__ZN12TVServiceAPI22CreateSignalSubscriberEPFi11ESignalType8EProfilet12TSSignalDataPvEPP17ISignalSubscriber(
    SignalCallback /*callback*/, ISignalSubscriber** subscriber) {
    static Subscriber only;
    *subscriber = &only;
    return 0;
}
}
