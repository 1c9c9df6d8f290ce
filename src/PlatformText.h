// Internal: the owner of a text that the platform has handed out, to be released with free().
#pragma once

#include <cstdlib>
#include <memory>

struct PlatformTextDeleter {
    void operator()(char* text) const { std::free(text); }
};
using PlatformText = std::unique_ptr<char, PlatformTextDeleter>;
