#include "simulator/base/Process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"

namespace sim {

namespace {

// Each name occurs once: of two values, a program might take either.
std::vector<std::string> mergedEnvironment(std::map<std::string, std::string> merged) {
    // emplace() leaves the variables that the caller has given.
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        merged.emplace(text.substr(0, equals), equals == std::string::npos ? "" : text.substr(equals + 1));
    }
    std::vector<std::string> entries;
    entries.reserve(merged.size());
    for (const auto& [name, value] : merged) {
        std::string entry = name;
        entries.push_back(std::move(entry.append("=").append(value)));
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
    // In glibc, neither can fail.
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
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
    std::vector<std::string> words = options.words;
    std::vector<std::string> variables = mergedEnvironment(options.environment);
    SpawnSettings settings;
    const auto check = [&](int error) {
        if (error != 0) {
            throw Error::ofSystem(words.front(), "cannot launch", error);
        }
    };
    const auto give = [&](int descriptor, int number) {
        check(posix_spawn_file_actions_adddup2(&settings.actions, descriptor, number));
    };
    if (options.output >= 0) {
        give(options.output, STDOUT_FILENO);
    }
    if (options.errors >= 0) {
        give(options.errors, STDERR_FILENO);
    }
    for (const int descriptor : options.handedDown) {
        give(descriptor, descriptor);  // which undoes O_CLOEXEC
    }
    // Signals that this process ignores or blocks must still reach the program.
    sigset_t signals;
    sigemptyset(&signals);
    check(posix_spawnattr_setsigmask(&settings.attributes, &signals));
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) {
        sigaddset(&signals, signal);
    }
    check(posix_spawnattr_setsigdefault(&settings.attributes, &signals));
    constexpr int ALWAYS = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    check(posix_spawnattr_setflags(&settings.attributes,
                                   static_cast<short>(options.hasOwnGroup ? ALWAYS | POSIX_SPAWN_SETPGROUP : ALWAYS)));
    std::fflush(nullptr);  // else the program's output would come before what this process has printed
    check(::posix_spawnp(&m_id, words.front().c_str(), &settings.actions, &settings.attributes,
                         pointersTo(words).data(), pointersTo(variables).data()));
}

int Process::wait() const {
    int status = 0;
    while (::waitpid(m_id, &status, 0) < 0) {
        if (errno != EINTR) {
            throw Error::ofSystem("process " + std::to_string(m_id), "cannot wait");
        }
    }
    return status;
}

int Process::waitOrKill(std::chrono::milliseconds patience) const {
    // waitpid() has no time limit, but a descriptor of the process can be polled.
    const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, m_id, 0)));
    pollfd end = {process.get(), POLLIN, 0};
    // Without such a descriptor, on an old kernel, only the end itself can be waited for.
    if (process.isOpen() && ::poll(&end, 1, static_cast<int>(patience.count())) == 0) {
        ::kill(m_id, SIGKILL);
    }
    return wait();
}

std::string describeEnd(int status) {
    return WIFSIGNALED(status)
               ? "killed by signal " + std::to_string(WTERMSIG(status)) + " (" + ::strsignal(WTERMSIG(status)) + ")"
               : "ended with code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace sim
