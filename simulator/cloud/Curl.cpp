#include "simulator/cloud/Curl.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "simulator/base/Error.h"

namespace sim {

namespace {

constexpr char LIBRARY[] = "libcurl.so.4";

template <typename Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
    if (function == nullptr) {
        throw Error(fmt::format("{}; install libcurl4", ::dlerror()));
    }
}

Curl load() {
    void* library = ::dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Error(fmt::format("{}; install libcurl4", ::dlerror()));
    }
    Curl curl;
    find(library, "curl_easy_cleanup", curl.easy_cleanup);
    find(library, "curl_easy_getinfo", curl.easy_getinfo);
    find(library, "curl_easy_init", curl.easy_init);
    find(library, "curl_easy_perform", curl.easy_perform);
    find(library, "curl_easy_reset", curl.easy_reset);
    find(library, "curl_easy_setopt", curl.easy_setopt);
    find(library, "curl_easy_strerror", curl.easy_strerror);
    find(library, "curl_easy_unescape", curl.easy_unescape);
    find(library, "curl_free", curl.free);
    find(library, "curl_global_init", curl.global_init);
    find(library, "curl_slist_append", curl.slist_append);
    find(library, "curl_slist_free_all", curl.slist_free_all);
    const CURLcode done = curl.global_init(CURL_GLOBAL_DEFAULT);
    if (done != CURLE_OK) {
        throw Error(fmt::format("{}: {}", LIBRARY, curl.easy_strerror(done)));
    }
    return curl;
}

}  // namespace

const Curl& curl() {
    static const Curl loaded = load();
    return loaded;
}

}  // namespace sim
