#include "simulator/cloud/ObjectSettings.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::uint64_t PROFILE_FILE_BYTES = 1U << 20;
constexpr long DAY = 86'400;

std::string trimmed(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r";
    const std::size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string_view::npos ? ""
                                           : std::string(text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin));
}

// The profile that is asked for, as both files have it together.
class Profile {
public:
    Profile() : m_isNamed(!environment("AWS_PROFILE").empty()), m_name(environment("AWS_PROFILE", "default")) {
        const fs::path folder = fs::path(environment("HOME", "/")) / ".aws";
        const fs::path credentials = environment("AWS_SHARED_CREDENTIALS_FILE", (folder / "credentials").c_str());
        const fs::path config = environment("AWS_CONFIG_FILE", (folder / "config").c_str());
        read(credentials, m_name);
        read(config, m_name == "default" ? m_name : "profile " + m_name);
        if (m_isNamed && !m_isFound) {
            throw Error(Error::Kind::Missing, fmt::format("AWS_PROFILE: there is no profile {} in {} or {}",
                                                          inQuotes(m_name), credentials.string(), config.string()));
        }
    }

    bool isNamed() const { return m_isNamed; }

    std::string value(const std::string& name) const {
        const auto found = m_values.find(name);
        return found == m_values.end() ? "" : found->second;
    }

    // What another tool would obey.
    void addUnused(std::vector<std::string>& unused) const {
        static const char* const USED[] = {
            "aws_access_key_id", "aws_secret_access_key", "aws_session_token", "region", "endpoint_url", "output"};
        for (const auto& [name, value] : m_values) {
            if (std::find(std::begin(USED), std::end(USED), name) == std::end(USED)) {
                unused.push_back(fmt::format("{} of the profile {}", shown(name), inQuotes(m_name)));
            }
        }
    }

private:
    // The first value of a name counts: the file with the keys is read first.
    void read(const fs::path& file, const std::string& section) {
        if (!isRegularFile(file)) {
            return;
        }
        bool isOfProfile = false;
        for (const std::string& line : split(readFile(file, PROFILE_FILE_BYTES), '\n')) {
            const std::string text = trimmed(line);
            if (!text.empty() && text.front() == '[') {
                isOfProfile = trimmed(text.substr(1, text.find(']') - 1)) == section;
                m_isFound = m_isFound || isOfProfile;
            } else if (const std::size_t equals = text.find('='); isOfProfile && equals != std::string::npos &&
                                                                  text.front() != '#' && text.front() != ';' &&
                                                                  line.front() != ' ' && line.front() != '\t') {
                m_values.emplace(trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1)));
            }
        }
    }

    bool m_isNamed;
    std::string m_name;
    bool m_isFound = false;
    std::map<std::string, std::string> m_values;
};

// The value, which goes into a header, or a part of the address. Its text may be a secret, and is not shown.
std::string checked(const std::string& value, const char* name) {
    const auto isWrong = [](char c) { return c <= ' ' || c > '~'; };
    if (std::any_of(value.begin(), value.end(), isWrong)) {
        throw Error(fmt::format("{} has a blank, a line break or another character that cannot be sent", name));
    }
    return value;
}

std::string required(const std::string& value, const char* name, const char* what) {
    if (value.empty()) {
        throw Error(fmt::format("{} is not set: {}", name, what));
    }
    return checked(value, name);
}

std::string endpointIn(const std::string& text) {
    std::string endpoint = trimmed(text);
    endpoint.erase(endpoint.find_last_not_of('/') + 1);
    // In front of an '@' is a user with a password, and a query may have a signature.
    if (endpoint.find_first_of("@?#") != std::string::npos) {
        throw Error(
            "AWS_ENDPOINT_URL: an address has a user, a query or a fragment; give the key in AWS_ACCESS_KEY_ID and "
            "AWS_SECRET_ACCESS_KEY instead");
    }
    const std::size_t host = endpoint.find("://") + 3;
    const bool hasScheme = endpoint.compare(0, host, "http://") == 0 || endpoint.compare(0, host, "https://") == 0;
    if (!hasScheme || host >= endpoint.size()) {
        throw Error(fmt::format(
            "AWS_ENDPOINT_URL: {} is not an address such as http://127.0.0.1:8000; separate several with commas",
            inQuotes(endpoint)));
    }
    return checked(endpoint, "AWS_ENDPOINT_URL");
}

std::chrono::seconds seconds(const char* name, std::chrono::seconds otherwise, long least) {
    const std::string text = environment(name);
    if (text.empty()) {
        return otherwise;
    }
    const std::optional<long> number = toNumber<long>(text);
    if (!number || *number < least || *number > DAY) {
        throw Error(
            fmt::format("{}: {} is no whole number of seconds from {} to {}", name, inQuotes(text), least, DAY));
    }
    return std::chrono::seconds(*number);
}

// All from the environment, or all from the profile: a secret of one with the key of the other would fit by chance.
void takeKey(const Profile& profile, ObjectSettings& settings) {
    const bool isOfEnvironment = !environment("AWS_ACCESS_KEY_ID").empty();
    const auto value = [&](const char* variable, const char* member) {
        return isOfEnvironment ? environment(variable) : profile.value(member);
    };
    settings.key = required(value("AWS_ACCESS_KEY_ID", "aws_access_key_id"), "AWS_ACCESS_KEY_ID",
                            "set it to the object store's access key, or AWS_PROFILE to a profile that has one");
    settings.secret = required(value("AWS_SECRET_ACCESS_KEY", "aws_secret_access_key"), "AWS_SECRET_ACCESS_KEY",
                               "set it to the secret of the access key");
    settings.token = checked(value("AWS_SESSION_TOKEN", "aws_session_token"), "AWS_SESSION_TOKEN");
    if (isOfEnvironment && profile.isNamed() && !profile.value("aws_access_key_id").empty()) {
        settings.unused.push_back("the key of AWS_PROFILE, as AWS_ACCESS_KEY_ID is set");
    }
}

}  // namespace

ObjectSettings readObjectSettings() {
    const Profile profile;
    const auto chosen = [&](const char* first, const char* second, const char* member) {
        const std::string own = environment(first, environment(second).c_str());
        return own.empty() ? profile.value(member) : own;
    };
    ObjectSettings settings;
    const std::string endpoints = chosen("AWS_ENDPOINT_URL_S3", "AWS_ENDPOINT_URL", "endpoint_url");
    if (endpoints.empty()) {
        throw Error("AWS_ENDPOINT_URL is not set: set it to the object store's address, such as http://127.0.0.1:8000");
    }
    for (const std::string& endpoint : split(endpoints, ',')) {
        settings.endpoints.push_back(endpointIn(endpoint));
    }
    takeKey(profile, settings);
    settings.region = checked(chosen("AWS_REGION", "AWS_DEFAULT_REGION", "region"), "AWS_REGION");
    settings.certificates = environment("AWS_CA_BUNDLE");
    if (!settings.certificates.empty() && ::access(settings.certificates.c_str(), R_OK) != 0) {
        throw Error::ofSystem("AWS_CA_BUNDLE: " + settings.certificates, "cannot read");
    }
    settings.stall = seconds(STALL_VARIABLE, settings.stall, 1);
    settings.limit = seconds(LIMIT_VARIABLE, settings.limit, 1);
    settings.pause = seconds(PAUSE_VARIABLE, settings.pause, 0);
    profile.addUnused(settings.unused);
    for (const char* name : {"AWS_ROLE_ARN", "AWS_WEB_IDENTITY_TOKEN_FILE", "AWS_CONTAINER_CREDENTIALS_FULL_URI",
                             "AWS_CONTAINER_CREDENTIALS_RELATIVE_URI"}) {
        if (!environment(name).empty()) {
            settings.unused.emplace_back(name);
        }
    }
    return settings;
}

}  // namespace sim
