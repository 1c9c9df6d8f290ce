// Other programs as processes.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sim {

struct ProcessOptions {
    std::vector<std::string> words;  // the program's path, then its arguments
    std::map<std::string, std::string>
        environment;  // variables that it gets in the place of, or beside, this process's
    int output = -1;  // descriptors for its standard output and error; -1: this process's
    int errors = -1;
    bool hasOwnGroup = false;          // what a terminal sends to this process does not reach it
    std::vector<int> handedDown = {};  // descriptors that it gets under their own numbers
};

// A program that was started; its end must be waited for. Throws Error where it cannot be started.
class Process {
public:
    explicit Process(const ProcessOptions& options);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    int id() const { return m_id; }

    // Waits for the end. The status as waitpid() gives it.
    int wait() const;

private:
    int m_id = 0;
};

// A status of wait() in words: "ended with code 3", "killed by signal 9 (Killed)".
std::string describeEnd(int status);

}  // namespace sim
