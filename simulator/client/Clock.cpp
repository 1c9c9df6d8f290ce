#include "simulator/client/Clock.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

namespace {

// Initialised without code, as objects of other files ask for the time before main().
bool isSet = false;
timespec now = {};

timespec timeOf(clockid_t clock) {
    timespec time = {};
    if (isSet && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        time = now;
    } else {
        // The C library's function has the name of the one below, which would call itself.
        ::syscall(SYS_clock_gettime, clock, &time);
    }
    return time;
}

}  // namespace

void client::setTime(std::int64_t milliseconds) {
    constexpr std::int64_t SECOND = 1000;
    constexpr std::int64_t NANOSECONDS = 1000000;
    now.tv_sec = static_cast<std::time_t>(milliseconds / SECOND);
    now.tv_nsec = static_cast<decltype(now.tv_nsec)>(milliseconds % SECOND * NANOSECONDS);
    isSet = true;
}

void client::setTimeZone(const std::string& zone) {
    ::setenv("TZ", zone.c_str(), 1);
    ::tzset();
}

// The application and its libraries find these before the C library's own.
extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    *time = timeOf(clock);
    return 0;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
    constexpr long MICROSECOND = 1000;  // nanoseconds
    const timespec found = timeOf(CLOCK_REALTIME);
    time->tv_sec = found.tv_sec;
    time->tv_usec = static_cast<decltype(time->tv_usec)>(found.tv_nsec / MICROSECOND);
    return 0;
}

std::time_t time(std::time_t* time) noexcept {
    const std::time_t found = timeOf(CLOCK_REALTIME).tv_sec;
    if (time != nullptr) {
        *time = found;
    }
    return found;
}
}
