// The time that the system gives this process.
#pragma once

#include <cstdint>
#include <string>

namespace client {

// From now on it is this one, in milliseconds since 1970, and stands until the next call; before the first, it is the
// machine's.
void setTime(std::int64_t milliseconds);

// As $TZ has it.
void setTimeZone(const std::string& zone);

}  // namespace client
