#include "halcyon_tv/Tv.h"

#include <json/reader.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace halcyon {

namespace {

using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

// A file, unlike a pipe, holds what comes while nobody reads.
File temporaryFile() {
    File file(std::tmpfile(), &std::fclose);
    if (file == nullptr) {
        throw Failure("there is no room for temporary files");
    }
    return file;
}

std::string contentOf(std::FILE* file) {
    std::rewind(file);
    std::string text;
    std::array<char, 4096> buffer = {};
    for (std::size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), file)) > 0;) {
        text.append(buffer.data(), count);
    }
    return text;
}

// In the child: what fails here is the exit code of a shell that does not find a program.
[[noreturn]] void become(std::vector<char*>& arguments, const std::map<std::string, std::string>& environment,
                         const fs::path& folder, int output, int errors) {
    constexpr int NOT_STARTED = 127;
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (::chdir(folder.c_str()) == 0 && ::dup2(output, STDOUT_FILENO) >= 0 && ::dup2(errors, STDERR_FILENO) >= 0) {
        ::execvp(arguments.front(), arguments.data());
    }
    std::perror(arguments.front());
    ::_exit(NOT_STARTED);
}

// The list beside the program: bin/halcyon-tv, share/halcyon-tv/factory.conf.
fs::path factoryList(const std::string& program) {
    std::istringstream places(program.find('/') == std::string::npos ? std::getenv("PATH") : "");
    std::error_code error;
    for (std::string place; std::getline(places, place, ':');) {
        if (fs::exists(fs::path(place) / program, error)) {
            return fs::path(place).parent_path() / "share/halcyon-tv/factory.conf";
        }
    }
    return fs::path(program).parent_path().parent_path() / "share/halcyon-tv/factory.conf";
}

std::vector<std::string> inTimeline(const Json::Value& run, const char* kind, const char* member) {
    std::vector<std::string> texts;
    for (const Json::Value& moment : run["timeline"]) {
        if (!moment[kind].isNull()) {
            texts.push_back(moment[kind][member].asString());
        }
    }
    return texts;
}

}  // namespace

Json::Value Answer::json() const {
    std::istringstream stream(text);
    Json::Value value;
    std::string problem;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &problem)) {
        throw Failure("this is no JSON: " + problem + text + errors);
    }
    return value;
}

Answer execute(const std::vector<std::string>& words, const std::map<std::string, std::string>& environment,
               const fs::path& folder) {
    const File output = temporaryFile();
    const File errors = temporaryFile();
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
        become(arguments, environment, folder, ::fileno(output.get()), ::fileno(errors.get()));
    }
    int status = 0;
    if (process < 0 || ::waitpid(process, &status, 0) != process) {
        throw Failure(words.front() + " cannot be started");
    }
    const int code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return {code, contentOf(output.get()), contentOf(errors.get())};
}

std::map<std::string, std::string> Run::items() const {
    std::map<std::string, std::string> states;
    for (const Json::Value& item : m_json["items"]) {
        states[item["item"].asString()] = item["state"].asString();
    }
    return states;
}

std::vector<std::string> Run::calls() const {
    return inTimeline(m_json, "call", "name");
}

std::vector<std::string> Run::log() const {
    return inTimeline(m_json, "log", "message");
}

Tv::Tv(fs::path folder, const std::string& name, TvOptions options)
    : m_folder(std::move(folder)), m_home(m_folder / name), m_options(std::move(options)) {
    const fs::path channels = m_options.channels.empty() ? factoryList(m_options.program) : m_options.channels;
    command({"init", "--channels", channels, "--serial", m_options.serial.empty() ? name : m_options.serial, "--now",
             m_options.now, "--still"});
}

Answer Tv::command(const std::vector<std::string>& words, std::optional<int> code) const {
    std::vector<std::string> all = {m_options.program};
    all.insert(all.end(), words.begin(), words.end());
    const bool isAddress = m_options.cloud.find("://") != std::string::npos;
    Answer answer = execute(all,
                            {{"HALCYON_TV_HOME", m_home},
                             {"HALCYON_CLOUD", isAddress ? m_options.cloud : (m_folder / m_options.cloud).string()}},
                            m_folder);
    if (code && answer.code != *code) {
        throw Failure("halcyon-tv " + words.front() + ": exit code " + std::to_string(answer.code) + "\n" +
                      answer.text + answer.errors);
    }
    return answer;
}

Run Tv::run(const std::vector<std::string>& extras, const std::vector<std::string>& options) const {
    std::vector<std::string> words = {"run", "--json", "-v"};
    if (!m_options.application.empty()) {
        words.insert(words.end(), {"--app", m_options.application});
    }
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), extras.begin(), extras.end());
    return Run(command(words, std::nullopt).json());
}

int Tv::fault(const std::string& call, const std::vector<std::string>& failures,
              const std::vector<std::string>& options) const {
    std::vector<std::string> words = {"fault", "add", call};
    words.insert(words.end(), failures.begin(), failures.end());
    words.insert(words.end(), options.begin(), options.end());
    words.emplace_back("--json");
    return command(words).json()["rule"].asInt();
}

std::optional<Json::Value> Tv::differenceFrom(const Tv& other) const {
    const Answer answer = command({"diff", other.home(), "--json"}, std::nullopt);
    if (answer.code > 1) {
        throw Failure(answer.errors);
    }
    return answer.code == 1 ? std::optional(answer.json()) : std::nullopt;
}

}  // namespace halcyon
