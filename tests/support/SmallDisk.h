// A disk that runs full.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstddef>

namespace test {

// Limits every file to a size within the scope.
class SmallDisk {
public:
    static constexpr std::size_t SIZE = 2U << 20;

    explicit SmallDisk(std::size_t size = SIZE) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit limit = {size, m_limit.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SmallDisk() {
        ::setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

private:
    void (*m_handler)(int);
    rlimit m_limit = {};
};

}  // namespace test
