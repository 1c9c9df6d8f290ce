// A request that is answered by a process of its own, so that its memory is given back, and its work can be ended.
#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "simulator/base/Process.h"
#include "simulator/web/Lab.h"

namespace sim {

class Job {
public:
    // `words` are those of wordsOf().
    Job(const Lab& lab, std::string words) : m_lab(lab), m_words(std::move(words)), m_output(nullptr, &std::fclose) {}

    // Ends the process if it still runs.
    ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    struct Answer {
        int status;  // of HTTP
        std::string json;
    };

    // The answer, if there is one yet. Starts the process, unless there are too many already: then a later call does.
    // Throws Error if it cannot be started.
    std::optional<Answer> answer();

private:
    void start();
    void end();

    const Lab& m_lab;
    std::string m_words;
    std::unique_ptr<std::FILE, decltype(&std::fclose)> m_output;
    std::optional<Process> m_process;
    std::chrono::steady_clock::time_point m_deadline;
    bool m_hasEnded = false;
};

}  // namespace sim
