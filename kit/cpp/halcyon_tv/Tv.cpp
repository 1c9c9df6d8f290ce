#include "halcyon_tv/Tv.h"

#include <fcntl.h>
#include <json/reader.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace halcyon {

namespace {

// What a program prints on one of its streams.
class Stream {
public:
    Stream() {
        if (::pipe2(m_ends.data(), O_CLOEXEC) != 0) {
            throw Failure("there is no room for a pipe");
        }
    }
    ~Stream() {
        closeInput();
        ::close(output());
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int output() const { return m_ends[0]; }
    int input() const { return m_ends[1]; }

    void closeInput() {
        if (input() >= 0) {
            ::close(input());
            m_ends[1] = -1;
        }
    }

    // Returns false at the end.
    bool read(std::string& text) const {
        std::array<char, 4096> buffer = {};
        const ssize_t count = ::read(output(), buffer.data(), buffer.size());
        text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }

private:
    std::array<int, 2> m_ends = {};
};

// Reads both to their ends, as they come: a program waits if nobody reads.
void readBoth(Stream& output, Stream& errors, Answer& answer) {
    output.closeInput();
    errors.closeInput();
    std::array<pollfd, 2> open = {{{output.output(), POLLIN, 0}, {errors.output(), POLLIN, 0}}};
    while ((open[0].fd >= 0 || open[1].fd >= 0) && ::poll(open.data(), open.size(), -1) >= 0) {
        if (open[0].revents != 0 && !output.read(answer.text)) {
            open[0].fd = -1;
        }
        if (open[1].revents != 0 && !errors.read(answer.errors)) {
            open[1].fd = -1;
        }
    }
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
    const char* const path = program.find('/') == std::string::npos ? std::getenv("PATH") : nullptr;
    std::istringstream places(path != nullptr ? path : "");
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
    Stream output;
    Stream errors;
    Answer answer;
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
        become(arguments, environment, folder, output.input(), errors.input());
    }
    readBoth(output, errors, answer);
    int status = 0;
    if (process < 0 || ::waitpid(process, &status, 0) != process) {
        throw Failure(words.front() + " cannot be started");
    }
    answer.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return answer;
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
