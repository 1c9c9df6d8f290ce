#include "simulator/base/Process.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

// One value a name: a program may take the first or the last of two.
std::vector<std::string> mergedEnvironment(std::map<std::string, std::string> merged) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        merged.emplace(text.substr(0, equals), equals == std::string::npos ? "" : text.substr(equals + 1));
    }
    std::vector<std::string> entries;
    entries.reserve(merged.size());
    for (const auto& [name, value] : merged) {
        entries.push_back(fmt::format("{}={}", name, value));
    }
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

class SpawnSettings {
public:
    // Signals that this process ignores or blocks must reach the other one.
    explicit SpawnSettings(const ProcessOptions& options) {
        posix_spawn_file_actions_init(&actions);
        if (options.output >= 0) {
            posix_spawn_file_actions_adddup2(&actions, options.output, STDOUT_FILENO);
        }
        if (options.errors >= 0) {
            posix_spawn_file_actions_adddup2(&actions, options.errors, STDERR_FILENO);
        }
        for (const int descriptor : options.handedDown) {
            posix_spawn_file_actions_adddup2(&actions, descriptor, descriptor);
        }
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&signals, signal);
        }
        posix_spawnattr_setsigdefault(&attributes, &signals);
        constexpr int ALWAYS = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        posix_spawnattr_setflags(&attributes,
                                 static_cast<short>(options.hasOwnGroup ? ALWAYS | POSIX_SPAWN_SETPGROUP : ALWAYS));
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions = {};
    posix_spawnattr_t attributes = {};
};

}  // namespace

Process::Process(const ProcessOptions& options) {
    std::vector<std::string> words = split(environment(EMULATOR_VARIABLE), ' ');
    if (words.front().empty()) {
        words.clear();
    }
    words.insert(words.end(), options.words.begin(), options.words.end());
    std::vector<std::string> variables = mergedEnvironment(options.environment);
    const SpawnSettings settings(options);
    std::fflush(nullptr);  // what was printed before comes before what the other one prints
    const int error = ::posix_spawnp(&m_id, words.front().c_str(), &settings.actions, &settings.attributes,
                                     pointersTo(words).data(), pointersTo(variables).data());
    if (error != 0) {
        throw Error(kindOfErrno(error),
                    fmt::format("cannot launch {}: {}", options.words.front(), std::strerror(error)));
    }
}

int Process::wait() const {
    int status = 0;
    while (::waitpid(m_id, &status, 0) < 0) {
        if (errno != EINTR) {
            throw Error(fmt::format("cannot wait for process {}: {}", m_id, std::strerror(errno)));
        }
    }
    return status;
}

std::string describeEnd(int status) {
    return WIFSIGNALED(status)
               ? fmt::format("killed by signal {} ({})", WTERMSIG(status), ::strsignal(WTERMSIG(status)))
               : fmt::format("ended with code {}", WEXITSTATUS(status));
}

}  // namespace sim
