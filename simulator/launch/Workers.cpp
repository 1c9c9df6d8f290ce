#include "simulator/launch/Workers.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <new>
#include <utility>
#include <vector>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"

namespace sim {

namespace {

constexpr char WHAT[] = "a worker";

std::atomic<bool> isInterrupted{false};

// The next piece, in memory that the processes share.
class Counter {
public:
    Counter() {
        void* memory = ::mmap(nullptr, sizeof(std::atomic<std::size_t>), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw Error::ofSystem(WHAT, "cannot share memory with it");
        }
        m_next = new (memory) std::atomic<std::size_t>(0);
    }
    ~Counter() { ::munmap(m_next, sizeof *m_next); }
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    std::size_t next() { return m_next->fetch_add(1); }

private:
    std::atomic<std::size_t>* m_next = nullptr;
};

// A result on its way: the number of its piece, or '!' for an error, a blank, and its text in one line.
void send(const Descriptor& pipe, const std::string& head, const std::string& text) {
    writeAll(pipe, fmt::format("{} {}\n", head, text), WHAT);
}

void work(const Descriptor& pipe, Counter& counter, std::size_t count, std::size_t number,
          const std::function<Piece(std::size_t)>& begin) {
    try {
        const Piece piece = begin(number);
        for (std::size_t i = counter.next(); i < count; i = counter.next()) {
            send(pipe, std::to_string(i), piece(i));
        }
    } catch (const Error& error) {
        send(pipe, "!", error.what());
    }
}

// A worker, as the process that shares the work out sees it.
struct Worker {
    int process = 0;
    Descriptor pipe;
    std::string received;
};

class Workers {
public:
    Workers() {
        struct sigaction interrupt = {};
        interrupt.sa_handler = [](int) { isInterrupted = true; };
        ::sigaction(SIGINT, &interrupt, &m_before[0]);
        ::sigaction(SIGTERM, &interrupt, &m_before[1]);
    }
    ~Workers() {
        for (const Worker& worker : m_workers) {
            if (worker.process > 0) {
                ::kill(worker.process, SIGKILL);
                ::waitpid(worker.process, nullptr, 0);
            }
        }
        ::sigaction(SIGINT, &m_before[0], nullptr);
        ::sigaction(SIGTERM, &m_before[1], nullptr);
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    void start(Counter& counter, std::size_t count, const std::function<Piece(std::size_t)>& begin) {
        DescriptorPair pipe = pipePair(WHAT);
        std::fflush(nullptr);  // else the copy would print it once more
        const int process = ::fork();
        if (process < 0) {
            throw Error::ofSystem(WHAT, "cannot start");
        }
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::signal(SIGTERM, SIG_DFL);
            work(pipe[1], counter, count, m_workers.size(), begin);
            std::fflush(nullptr);
            std::_Exit(0);
        }
        m_workers.push_back({process, std::move(pipe[0]), {}});
    }

    // Hands out the lines of all workers until they have ended.
    void receive(const std::function<void(const std::string&)>& take) {
        for (std::vector<pollfd> places = openPipes(); !places.empty(); places = openPipes()) {
            ::poll(places.data(), static_cast<nfds_t>(places.size()), -1);
            if (isInterrupted) {
                throw Error("interrupted");
            }
            for (const pollfd& place : places) {
                if (place.revents != 0) {
                    receive(place.fd, take);
                }
            }
        }
    }

private:
    std::vector<pollfd> openPipes() const {
        std::vector<pollfd> places;
        for (const Worker& worker : m_workers) {
            if (worker.pipe.isOpen()) {
                places.push_back({worker.pipe.get(), POLLIN, 0});
            }
        }
        return places;
    }

    void receive(int pipe, const std::function<void(const std::string&)>& take) {
        Worker& worker = *std::find_if(m_workers.begin(), m_workers.end(),
                                       [&](const Worker& each) { return each.pipe.get() == pipe; });
        std::array<char, 65536> buffer;
        const ssize_t size = ::read(pipe, buffer.data(), buffer.size());
        if (size <= 0) {
            worker.pipe.reset();
            int status = 0;
            ::waitpid(std::exchange(worker.process, 0), &status, 0);
            if (status != 0) {
                throw Error(fmt::format("{} {}", WHAT, "has crashed"));
            }
            return;
        }
        worker.received.append(buffer.data(), static_cast<std::size_t>(size));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = worker.received.find('\n', begin)) != std::string::npos; begin = end + 1) {
            take(worker.received.substr(begin, end - begin));
        }
        worker.received.erase(0, begin);
    }

    std::vector<Worker> m_workers;
    std::array<struct sigaction, 2> m_before = {};
};

}  // namespace

void shareOut(std::size_t workers, std::size_t count, const std::function<Piece(std::size_t worker)>& begin,
              const std::function<void(std::size_t piece, const std::string& result)>& take) {
    Counter counter;
    Workers all;
    for (std::size_t i = 0; i < std::min(workers, count); ++i) {
        all.start(counter, count, begin);
    }
    all.receive([&](const std::string& line) {
        const std::size_t blank = line.find(' ');
        const std::string text = line.substr(blank + 1);
        if (line.front() == '!') {
            throw Error(text);
        }
        take(std::stoul(line.substr(0, blank)), text);
    });
}

}  // namespace sim
