// libcurl, loaded when an object store is first used: with it and the thirty libraries that it needs, every program
// would take more than twice as long to start.
#pragma once

#include <curl/curl.h>

namespace sim {

// Its functions, as its header has them, without "curl_".
struct Curl {
    decltype(&::curl_easy_cleanup) easy_cleanup = nullptr;
    decltype(&::curl_easy_getinfo) easy_getinfo = nullptr;
    decltype(&::curl_easy_init) easy_init = nullptr;
    decltype(&::curl_easy_perform) easy_perform = nullptr;
    decltype(&::curl_easy_reset) easy_reset = nullptr;
    decltype(&::curl_easy_setopt) easy_setopt = nullptr;
    decltype(&::curl_easy_strerror) easy_strerror = nullptr;
    decltype(&::curl_easy_unescape) easy_unescape = nullptr;
    decltype(&::curl_free) free = nullptr;
    decltype(&::curl_global_init) global_init = nullptr;
    decltype(&::curl_slist_append) slist_append = nullptr;
    decltype(&::curl_slist_free_all) slist_free_all = nullptr;
};

// Initialised. Throws Error if it is not there.
const Curl& curl();

}  // namespace sim
