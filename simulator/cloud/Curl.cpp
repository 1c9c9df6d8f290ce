#include "simulator/cloud/Curl.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "simulator/base/Error.h"

namespace sim {

namespace {

constexpr char LIBRARY[] = "libcurl.so.4";

void* symbol(void* library, const char* name) {
    void* found = ::dlsym(library, name);
    if (found == nullptr) {
        throw Error(fmt::format("{}; install libcurl4", ::dlerror()));
    }
    return found;
}

Curl load() {
    void* library = ::dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Error(fmt::format("{}; install libcurl4", ::dlerror()));
    }
    Curl curl = {};
#define FUNCTION(name) curl.name = reinterpret_cast<decltype(&::curl_##name)>(symbol(library, "curl_" #name));
    CURL_FUNCTIONS(FUNCTION)
#undef FUNCTION
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
