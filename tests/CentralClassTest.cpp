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
#include <memory>

#include "simulator/base/Archive.h"
#include "tests/support/BrokenFolder.h"
#include "tests/support/TestTv.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

// main() of src/AppMain.cpp.
int application_main(int argc, char** argv);

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Not;
using ::testing::StartsWith;

struct EarlyTv {
    test::TempFolder folder;
    test::TestTv tv{folder.path(), "tv", "Welcome:11361:HC23:S19.2E:22000:501=27:502:0:0:5001:1:5:0\n"};
    const sim::Process services = tv.serveThisProcess();
};
__attribute__((init_priority(101))) EarlyTv early;

// What the platform answers, beside an object or a text.
struct Results {
    int read = 0;
    int createUtil = 0;
    int subscribe = 1;
} results;

// The text of the operation until it is freed, and the last message before that.
char* operationText = nullptr;
std::string messageBeforeFree;

// What the platform was handed.
void* cloudUserData = nullptr;
void* signalUserData = nullptr;
ISignalSubscriber* formerSubscriber = nullptr;
test::Strings openSettingsFiles;  // while a setting was set

// A subscriber that nobody signals.
class Subscriber final : public ISignalSubscriber {
public:
    int Subscribe(ESignalType /*type*/, void* appData, int /*profile*/, int /*option*/,
                  SignalCallback /*callback*/) override {
        signalUserData = appData;
        return results.subscribe;
    }
    int Unsubscribe(ESignalType /*type*/, int /*profile*/, int /*option*/, SignalCallback /*callback*/) override {
        return 1;
    }
};

// Lets the cloud service answer a restore with the TV's own channel database and a setting, in a bundle that can be
// read but not removed.
class Answer {
public:
    Answer() {
        const fs::path archive = early.folder / "ServiceDB.zip";
        const fs::path settings = early.folder / "vconf.json";
        early.tv.open().serviceDb().snapshot(archive);
        test::write(settings, R"({"dataSize":1,"data":[{"path":"p","type":1,"value":"x"}]})");
        sim::writeArchive(early.folder / "bundle.zip", {archive, settings});
        m_descriptor = ::open((early.folder / "bundle.zip").c_str(), O_RDONLY | O_CLOEXEC);
        m_path = fmt::format("/proc/self/fd/{}", m_descriptor);
    }
    ~Answer() { ::close(m_descriptor); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    void deliverTo(CHalcyonLineup& lineup, const std::string& mode = "-1") {
        const std::string metadata = R"({"version":"0.3","setting":{"antenna":1,"tvmode":{"antenna_mode":)" + mode +
                                     R"(,"service_mode":)" + mode + "}}}";
        bnr_resp_data_s data = {metadata.c_str(), m_path.c_str()};
        CHalcyonLineup::sm_BnrCallback(static_cast<bnr_response_e>(102), &data, &lineup);
    }

private:
    int m_descriptor;
    std::string m_path;
};

// With a scan running.
void restore(CHalcyonLineup& lineup) {
    sim::Tv(early.tv.home).setScanning(true);
    app_control_s* request = nullptr;
    app_control_create(&request);
    EXPECT_TRUE(lineup.Restore(request));
    Answer().deliverTo(lineup);
    app_control_destroy(request);
}

class CentralClass : public ::testing::Test {
protected:
    ~CentralClass() override { results = Results(); }

    // What this test has logged.
    test::Strings messages() const {
        const test::Strings all = test::messages();
        return {all.begin() + m_former, all.end()};
    }

private:
    std::ptrdiff_t m_former = static_cast<std::ptrdiff_t>(test::messages().size());
};

using Dispatch = CentralClass;

TEST_F(CentralClass, ResolvesItsFoldersOnceAndForAll) {
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH, early.tv.data.string());
    EXPECT_EQ(CHANNEL_MAP_DIR_PATH_TMP, early.tv.failures.string());
}

TEST_F(Dispatch, FreesTheOperationBeforeTheFailureIsHandled) {
    EXPECT_EQ(application_main(0, nullptr), 0);
    EXPECT_EQ(messageBeforeFree, "6 appCaller == nullptr");
    EXPECT_THAT(messages(), Contains("5 operation fail"));
}

TEST_F(Dispatch, TakesATextThatCameWithAFailureForNone) {
    for (const int status : {-1, 1}) {
        results.read = status;
        results.createUtil = -1;  // ends the backup at once
        application_main(0, nullptr);
        EXPECT_THAT(messages(), AllOf(Contains("5 Do backup"), Not(Contains("5 Do restore"))));
        EXPECT_EQ(operationText, nullptr) << "freed all the same";
    }
    fs::remove_all(early.tv.data);
}

TEST_F(CentralClass, RefusesARestoreWithoutRequest) {
    EXPECT_FALSE(CHalcyonLineup().Restore(nullptr));
    EXPECT_EQ(messages().back(), "6 appCaller == nullptr");
}

TEST_F(CentralClass, HasRestoredWhateverBecomesOfTheArchive) {
    CHalcyonLineup lineup;
    Answer().deliverTo(lineup);
    EXPECT_THAT(messages(), Contains(StartsWith("6 remove(/proc/self/fd/")));
    EXPECT_THAT(messages(), Contains("5 m_Restore success"));
}

TEST_F(CentralClass, UsesNothingOfARefusedRestore) {
    CHalcyonLineup lineup;
    for (const int status : {-1, 1}) {
        results.createUtil = status;
        Answer().deliverTo(lineup, "7");
        EXPECT_THAT(messages(), Not(Contains("5 m_Restore success"))) << "a utility that came with a failure";
    }
    CHalcyonLineup::sm_SignalCallback(static_cast<ESignalType>(18), static_cast<EProfile>(1), 0, {}, &lineup);
    EXPECT_THAT(messages(), Contains(StartsWith("4 tvMode[")));
    EXPECT_THAT(messages(), Not(Contains(StartsWith("4 tvMode[7/7]")))) << "the record of the backup";
}

TEST_F(CentralClass, LetsACiFolderThatCannotBeReadThrow) {
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
    EXPECT_THAT(messages(), Contains(StartsWith("5 ReplaceServiceDb(")));
    fs::remove_all(early.tv.data);
}

// All state is static, so any pointer would do until somebody adds a member.
TEST_F(CentralClass, HandsItselfToTheServices) {
    CHalcyonLineup lineup;
    restore(lineup);
    EXPECT_EQ(cloudUserData, &lineup);
    EXPECT_EQ(signalUserData, &lineup);
}

TEST_F(CentralClass, KeepsASubscriberThatCannotSubscribe) {
    CHalcyonLineup lineup;
    results.subscribe = 0;
    restore(lineup);
    formerSubscriber = nullptr;
    restore(lineup);
    EXPECT_NE(formerSubscriber, nullptr);
}

TEST_F(CentralClass, ClosesTheSettingsFileBeforeItSetsThem) {
    CHalcyonLineup lineup;
    Answer().deliverTo(lineup);
    EXPECT_EQ(sim::Tv(early.tv.home).settings().get("p", sim::SettingType::String), "x");
    EXPECT_THAT(openSettingsFiles, ::testing::IsEmpty());
}

}  // namespace

// The linker redirects the application's calls here.
extern "C" {
// A launch without a request.
int __wrap_ui_app_main(int /*argc*/, char** /*argv*/, const ui_app_callbacks* callbacks, void* userData) {
    callbacks->control(nullptr, userData);
    return 0;
}

// Every request is a restore, with a scan running.
int __wrap_app_control_get_extra_data(app_control_s* /*request*/, const char* key, char** value) {
    const bool isOperation = std::strcmp(key, "operation") == 0;
    *value = ::strdup(isOperation ? "restore" : "1");
    if (isOperation) {
        operationText = *value;
    }
    return results.read;
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

int __real_vconf_set_str(const char* key, const char* value);
int __wrap_vconf_set_str(const char* key, const char* value) {
    for (const fs::directory_entry& descriptor : fs::directory_iterator("/proc/self/fd")) {
        const fs::path file = fs::read_symlink(descriptor);
        if (file.filename() == "vconf.json") {
            openSettingsFiles.push_back(file);
        }
    }
    return __real_vconf_set_str(key, value);
}

// TVServiceAPI::CreateUtil
int __real__ZN12TVServiceAPI10CreateUtilEPP5IUtil(IUtil** util);
int __wrap__ZN12TVServiceAPI10CreateUtilEPP5IUtil(IUtil** util) {
    const int status = __real__ZN12TVServiceAPI10CreateUtilEPP5IUtil(util);
    if (results.createUtil == 0) {
        return status;
    }
    static std::vector<std::unique_ptr<IUtil, decltype(&TVServiceAPI::Destroy)>> unwanted;
    unwanted.emplace_back(*util, &TVServiceAPI::Destroy);
    return results.createUtil;
}

// TVServiceAPI::CreateSignalSubscriber
int __wrap__ZN12TVServiceAPI22CreateSignalSubscriberEPFi11ESignalType8EProfilet12TSSignalDataPvEPP17ISignalSubscriber(
    SignalCallback /*callback*/, ISignalSubscriber** subscriber) {
    static Subscriber only;
    formerSubscriber = *subscriber;
    *subscriber = &only;
    return 0;
}
}
