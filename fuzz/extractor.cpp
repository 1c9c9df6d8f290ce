// Archives, into the application's extractor.
#include <filesystem>

#include "fuzz/Fuzz.h"
#include "src/ZipUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::openTv();
    const std::string to = fuzz::emptyFolder("to").string() + "/";
    try {
        CZipUtil().UnzipFile(fuzz::writeInput("x.zip", data, size), to);
    } catch (const std::filesystem::filesystem_error&) {  // a name that no path can have, by design
    }
    return 0;
}
