#include "simulator/web/Job.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>

#include "simulator/base/Error.h"
#include "simulator/base/Json.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

constexpr int MAX_PROCESSES = 4;
constexpr std::chrono::seconds PATIENCE{60};
std::atomic<int> processes{0};

std::string contentOf(std::FILE* file) {
    struct stat status = {};
    ::fstat(::fileno(file), &status);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    return text;
}

}  // namespace

Job::~Job() {
    if (m_process && !m_hasEnded) {
        end();
    }
}

void Job::start() {
    // A file and not a pipe: however long the answer is, the process can end before anybody reads it.
    m_output.reset(std::tmpfile());
    if (!m_output) {
        throw Error::ofSystem("a temporary file", "cannot create");
    }
    ProcessOptions options;
    options.words = {"/proc/self/exe", "--home", m_lab.home(), "--cloud", m_lab.cloud(), "serve", "--answer", m_words};
    if (!m_lab.folder().empty()) {
        options.words.insert(options.words.end(), {"--lab", m_lab.folder()});
    }
    options.output = ::fileno(m_output.get());
    options.hasOwnGroup = true;  // an interrupt is the server's, which ends the process itself
    m_process.emplace(options);
    m_deadline = std::chrono::steady_clock::now() + PATIENCE;
}

void Job::end() {
    ::kill(m_process->id(), SIGKILL);
    ::waitpid(m_process->id(), nullptr, 0);
    m_hasEnded = true;
    --processes;
}

std::optional<Job::Answer> Job::answer() {
    if (!m_process) {
        // Counted before it is compared: several threads may ask at once.
        if (++processes > MAX_PROCESSES) {
            --processes;
            return std::nullopt;
        }
        try {
            start();
        } catch (const Error&) {
            --processes;
            throw;
        }
    }
    int status = 0;
    if (::waitpid(m_process->id(), &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() < m_deadline) {
            return std::nullopt;
        }
        end();
        return Answer{503, writeJson(refusal(503, "this takes more than a minute: let a command of halcyon-tv do it"))};
    }
    m_hasEnded = true;
    --processes;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return Answer{200, contentOf(m_output.get())};
    }
    Json::Value refused;
    if (!WIFEXITED(status) || !parseJson(contentOf(m_output.get()), refused) || !refused["status"].isInt()) {
        refused = refusal(500, "this could not be answered: its process " + describeEnd(status));
    }
    return Answer{refused["status"].asInt(), writeJson(refused)};
}

}  // namespace sim
