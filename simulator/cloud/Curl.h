// libcurl, loaded when an object store is first used: with it and the thirty libraries that it needs, every program
// would take more than twice as long to start.
#pragma once

#include <curl/curl.h>

namespace sim {

// clang-format off
#define CURL_FUNCTIONS(FUNCTION) \
    FUNCTION(easy_cleanup) \
    FUNCTION(easy_getinfo) \
    FUNCTION(easy_init) \
    FUNCTION(easy_perform) \
    FUNCTION(easy_reset) \
    FUNCTION(easy_setopt) \
    FUNCTION(easy_strerror) \
    FUNCTION(easy_unescape) \
    FUNCTION(free) \
    FUNCTION(global_init) \
    FUNCTION(slist_append) \
    FUNCTION(slist_free_all)
// clang-format on

// Its functions, as its header has them, without "curl_".
struct Curl {
#define FUNCTION(name) decltype(&::curl_##name) name;
    CURL_FUNCTIONS(FUNCTION)
#undef FUNCTION
};

// Initialised. Throws Error if it is not there.
const Curl& curl();

}  // namespace sim
