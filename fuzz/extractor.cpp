// Archives, into the application's extractor.
#include <unistd.h>

#include <filesystem>

#include "fuzz/Fuzz.h"
#include "src/ZipUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::openTv();
    // An extraction that fails leaves its archive open, by design: a process extracts once, and this one many times.
    const int firstFree = ::dup(STDIN_FILENO);
    ::close(firstFree);
    const std::string to = fuzz::emptyFolder("to").string() + "/";
    try {
        CZipUtil().UnzipFile(fuzz::writeInput("x.zip", data, size), to);
    } catch (const std::filesystem::filesystem_error&) {  // a name that no path can have, by design
    }
    ::close_range(static_cast<unsigned int>(firstFree), ~0U, 0);
    return 0;
}
