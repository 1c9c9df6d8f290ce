// Simulated TVs for tests in C++: halcyon-tv, each call in a folder of the test's own.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace halcyon {

// What a program has printed, and its exit code; 128 and the signal's number if a signal has ended it.
struct Answer {
    int code = 0;
    std::string text;
    std::string errors;

    Json::Value json() const;  // throws Failure if the text is no JSON
};

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Runs a program, which is looked for in $PATH if its name has no '/', and waits for its end. `environment` is added to
// this process's. Throws Failure if it cannot be started.
Answer execute(const std::vector<std::string>& words, const std::map<std::string, std::string>& environment = {},
               const std::filesystem::path& folder = ".");

// The verdict on a run, as `run --json` prints it, with its calls and log records.
class Run {
public:
    explicit Run(Json::Value json) : m_json(std::move(json)) {}

    const Json::Value& json() const { return m_json; }
    std::string outcome() const { return m_json["outcome"].asString(); }
    std::map<std::string, std::string> items() const;  // their states by their names: {"channels", "restored"}
    std::vector<std::string> calls() const;            // names of the platform calls in their order
    std::vector<std::string> log() const;              // messages of the application in their order

private:
    Json::Value m_json;
};

struct TvOptions {
    std::string cloud = "cloud";         // a folder in that of the test, or an address
    std::filesystem::path channels;      // empty: the short list that comes with halcyon-tv
    std::string serial;                  // empty: its name
    std::filesystem::path application;   // the build to run; empty: the installed one
    std::string program = "halcyon-tv";  // the tool
    std::string now = "2026-01-31T18:00:00Z";
};

// A TV in `folder`, and the cloud that it shares with others there. Its clock stands.
class Tv {
public:
    Tv(std::filesystem::path folder, const std::string& name, TvOptions options = {});

    const std::filesystem::path& home() const { return m_home; }

    // Runs halcyon-tv on it. Throws Failure if it ends with another exit code; none: with any.
    Answer command(const std::vector<std::string>& words, std::optional<int> code = 0) const;

    // Launches the application with extra values such as "operation=restore".
    Run run(const std::vector<std::string>& extras = {}, const std::vector<std::string>& options = {}) const;

    // Makes calls fail: fault("GetServiceDb", {"result=0"}, {"--nth", "2"}). Returns the number of the rule.
    int fault(const std::string& call, const std::vector<std::string>& failures,
              const std::vector<std::string>& options = {}) const;

    void set(const std::string& name, const std::string& value) const { command({"set", name, value}); }

    // What `diff` finds between this TV and another; nothing if they are the same.
    std::optional<Json::Value> differenceFrom(const Tv& other) const;

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_home;
    TvOptions m_options;
};

}  // namespace halcyon
