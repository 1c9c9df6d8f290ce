#include "simulator/tv/Faults.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using Strings = std::vector<std::string>;

Strings operator+(Strings left, const Strings& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::vector<FaultTarget> makeTargets() {
    const Strings thrown = {"throw"};
    const Strings status = Strings{"result=-1"} + thrown;                // 0 is success
    const Strings positive = Strings{"result=0", "result=-1"} + thrown;  // above 0 is success
    const Strings pointer = Strings{"null"} + thrown;
    const Strings damage = {"damage=truncate", "damage=corrupt",  "damage=empty",
                            "damage=missing",  "damage=dangling", "damage=unwritable"};
    const Strings event = {"null", "lost", "delay=60000"};
    return {
        {"ui_app_main", {"result=1"}},
        {"app_control_get_caller", status},
        {"app_control_get_extra_data", status + Strings{"result=0"}},
        {"app_control_clone", status},
        {"app_control_is_reply_requested", status},
        {"app_control_create", status},
        {"app_control_reply_to_launch_request", status},
        {"app_control_destroy", status},
        {"vconf_get_int", status},
        {"vconf_get_bool", status},
        {"vconf_get_dbl", status},
        {"vconf_get_str", pointer},
        {"vconf_set_int", status},
        {"vconf_set_bool", status},
        {"vconf_set_dbl", status},
        {"vconf_set_str", status},
        {"bnr_init", status},
        {"bnr_deinit", status},
        {"bnr_callback_register", status},
        {"bnr_callback_deregister", status},
        {"bnr_backup", status + Strings{"result=6"}},
        {"bnr_restore", status},
        {"bnr_report_success", status},
        {"bnr_report_failure", status},
        {"bnr_response",
         event + damage +
             Strings{"no-data", "result=0", "result=1", "result=102", "result=103", "result=500", "result=501",
                     "result=502", "result=503", "result=504", "result=505", "result=-1"}},
        {"TVServiceAPI::CreateUtil", status + Strings{"result=0"}},
        {"TVServiceAPI::CreateTunerControl", status},
        {"TVServiceAPI::CreateSignalSubscriber", status},
        {"TVServiceAPI::DestroySignalSubscriber", positive},
        {"IUtil::GetServiceDb", positive + damage},
        {"IUtil::ReplaceServiceDb", positive},
        {"IUtil::GetIssDbArchive", positive + damage},
        {"IUtil::RestoreIssDbArchive", positive},
        {"ITunerControl::GetAntennaConnectionStatus", positive},
        {"CTVSApiWrapper::CreateServiceNavigation", pointer},
        {"CTVSApiWrapper::CreateSourceControl", pointer},
        {"CTVSApiWrapper::CreateScanData", pointer},
        {"CTVSApiWrapper::CreateScanControl", pointer},
        {"IServiceNavigation::GetTvMode", positive},
        {"IServiceNavigation::SetTvMode", positive},
        {"IServiceNavigation::GetCurrentServiceInfo", positive + Strings{"result=1"}},
        {"IServiceNavigation::SetCurrentServiceInfo", positive},
        {"IServiceNavigation::ResetCurrentServiceInfo", positive},
        {"ISourceControl::GetCurrentSourceInfo", positive},
        {"ISourceControl::SetSource", positive},
        {"IScanData::IsScanActivated", positive},
        {"IScanControl::StopAutoScan", positive},
        {"ISignalSubscriber::Subscribe", positive},
        {"ISignalSubscriber::Unsubscribe", positive},
        {"tv_signal", event + Strings{"result=17"}},
        {"CCCategoryUtil::GetInstance", pointer},
        {"CCCategoryUtil::GetCurrentCategory", Strings{"result=0"} + thrown},
        {"CCCategoryUtil::SetCurrentCategory", Strings{"result=0"} + thrown},
        {"CIM::TCCIService::CIGeneralInstance", pointer},
        {"CIM::ICIGeneral::GetBackupFilePaths", positive + Strings{"result=1", "answer=2", "damage=missing"}},
        {"CIM::ICIGeneral::BackupFileDone", positive},
        {"JsonUtil::StringToJson", {"result=0"}},
        {"JsonUtil::StreamToJson", {"result=0"}},
        {"disk", {"cut"}},
    };
}

std::string kindOf(const std::string& failure) {
    return failure.substr(0, failure.find('='));
}

// A copy in memory that nothing can change any more. It lives as long as the process.
fs::path sealedCopy(const fs::path& file) {
    const std::string content = readFile(file);
    const int copy = ::memfd_create("sealed", MFD_ALLOW_SEALING);
    const bool sealed = copy >= 0 &&
                        ::write(copy, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
                        ::fcntl(copy, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) == 0;
    if (!sealed) {
        throw fs::filesystem_error("cannot seal a copy of", file, std::error_code(errno, std::generic_category()));
    }
    return fmt::format("/proc/self/fd/{}", copy);
}

void check(const FaultRule& rule) {
    const auto target = std::find_if(faultTargets().begin(), faultTargets().end(),
                                     [&](const FaultTarget& each) { return each.call == rule.call; });
    if (target == faultTargets().end()) {
        throw Error(fmt::format("no call '{}' can fail; see: halcyon-tv fault calls", rule.call));
    }
    const std::string kind = kindOf(rule.failure);
    const auto fits = [&](const std::string& each) {
        const bool hasFreeNumber = kind == "result" || kind == "answer" || kind == "delay";
        return hasFreeNumber ? kindOf(each) == kind : each == rule.failure;
    };
    if (std::none_of(target->failures.begin(), target->failures.end(), fits)) {
        throw Error(fmt::format("{} cannot fail with '{}'; see: halcyon-tv fault calls", rule.call, rule.failure));
    }
    if (rule.nth < 1 || rule.times < 0) {
        throw Error(
            fmt::format("a rule counts calls from 1 and fires 0 (for ever) or more times, not from {} and {} times",
                        rule.nth, rule.times));
    }
}

}  // namespace

Failure parseFailure(const std::string& text) {
    const std::size_t equals = text.find('=');
    const std::string kind = kindOf(text);
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    const auto number = [&] {
        const std::optional<int> parsed = toNumber<int>(value);
        if (!parsed) {
            throw Error(fmt::format("failure '{}': '{}' is not a number", text, value));
        }
        return *parsed;
    };
    if (kind == "result") {
        return {Failure::Kind::Result, number(), text};
    }
    if (kind == "answer") {
        return {Failure::Kind::Answer, number(), text};
    }
    if (kind == "delay") {
        if (number() < 0) {
            throw Error(fmt::format("failure '{}': nothing comes before its time", text));
        }
        return {Failure::Kind::Delay, number(), text};
    }
    if (kind == "damage") {
        return {Failure::Kind::Damage, 0, text};
    }
    const std::map<std::string, Failure::Kind> plain = {{"null", Failure::Kind::Null},
                                                        {"throw", Failure::Kind::Throw},
                                                        {"lost", Failure::Kind::Lost},
                                                        {"no-data", Failure::Kind::NoData},
                                                        {"cut", Failure::Kind::Cut}};
    const auto found = plain.find(text);
    if (found == plain.end()) {
        throw Error(fmt::format("no failure '{}'; see: halcyon-tv fault calls", text));
    }
    return {found->second, 0, text};
}

const std::vector<FaultTarget>& faultTargets() {
    static const std::vector<FaultTarget> targets = makeTargets();
    return targets;
}

std::int64_t addFault(SQLite::Database& database, const FaultRule& rule) {
    parseFailure(rule.failure);
    check(rule);
    SQLite::Statement insert(database, "INSERT INTO faults(call, failure, nth, times) VALUES(?, ?, ?, ?)");
    SQLite::bind(insert, rule.call, rule.failure, rule.nth, rule.times);
    insert.exec();
    return database.getLastInsertRowid();
}

std::vector<FaultRule> listFaults(SQLite::Database& database) {
    SQLite::Statement query(database, "SELECT id, call, failure, nth, times, fired FROM faults ORDER BY id");
    std::vector<FaultRule> rules;
    while (query.executeStep()) {
        rules.push_back({query.getColumn(0), query.getColumn(1), query.getColumn(2), query.getColumn(3),
                         query.getColumn(4), query.getColumn(5)});
    }
    return rules;
}

bool removeFault(SQLite::Database& database, std::int64_t id) {
    SQLite::Statement remove(database, "DELETE FROM faults WHERE id = ?");
    remove.bind(1, id);
    return remove.exec() == 1;
}

void clearFaults(SQLite::Database& database) {
    database.exec("DELETE FROM faults");
}

FaultInjector::FaultInjector(SQLite::Database& database) : m_database(database), m_rules(listFaults(database)) {}

std::optional<FaultInjector::Hit> FaultInjector::next(const std::string& call) {
    const int count = ++m_counts[call];
    const auto fires = [&](const FaultRule& rule) {
        return rule.call == call && count >= rule.nth && (rule.times == 0 || rule.fired < rule.times);
    };
    const auto rule = std::find_if(m_rules.begin(), m_rules.end(), fires);
    if (rule == m_rules.end()) {
        return std::nullopt;
    }
    ++rule->fired;
    SQLite::Statement update(m_database, "UPDATE faults SET fired = fired + 1 WHERE id = ?");
    update.bind(1, rule->id);
    update.exec();
    return Hit{rule->id, parseFailure(rule->failure)};
}

void damageFile(const fs::path& file, const std::string& how) {
    if (how == "damage=missing") {
        fs::remove(file);
        return;
    }
    if (how == "damage=dangling" || how == "damage=unwritable") {
        const fs::path target = how == "damage=dangling" ? fs::path("nowhere") : sealedCopy(file);
        fs::remove(file);
        fs::create_symlink(target, file);
        return;
    }
    if (how == "damage=empty") {
        fs::resize_file(file, 0);
        return;
    }
    if (how == "damage=truncate") {
        fs::resize_file(file, fs::file_size(file) / 2);
        return;
    }
    std::string content = readFile(file);
    for (std::size_t i = content.size() / 3; i < content.size() / 3 + 16 && i < content.size(); ++i) {
        content[i] = static_cast<char>(~content[i]);
    }
    writeFile(file, content);
}

}  // namespace sim
