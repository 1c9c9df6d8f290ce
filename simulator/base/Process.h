// Child processes.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace sim {

struct ProcessOptions {
    std::vector<std::string> words;                  // the program's path, then its arguments
    std::map<std::string, std::string> environment;  // added to this process's, replacing variables of the same name
    int output = -1;                                 // descriptor of its standard output; -1: this process's
    int errors = -1;                                 // the same of its standard error. The caller closes all of them
    std::vector<int> handedDown = {};                // descriptors that the program gets under the same numbers
    bool hasOwnGroup = false;                        // signals from this process's terminal do not reach it
};

// A program that was started. The caller must wait() for it, or it stays as a zombie.
class Process {
public:
    // Throws Error if the program cannot be started.
    explicit Process(const ProcessOptions& options);
    Process(Process&&) = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    int id() const { return m_id; }

    // Waits for the program to end, and returns the status of waitpid(). Throws Error.
    int wait() const;

    // The same, but kills the program if it has not ended after `patience`.
    int waitOrKill(std::chrono::milliseconds patience) const;

private:
    int m_id = 0;
};

// A status in words: "ended with code 3", "killed by signal 9 (Killed)".
std::string describeEnd(int status);

}  // namespace sim
