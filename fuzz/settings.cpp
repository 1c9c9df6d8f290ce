// Settings files, into the application's restore. The channel database is said to be replaced without a look.
#include <json/value.h>

#include "fuzz/Fuzz.h"
#include "simulator/base/Archive.h"
#include "simulator/tv/Tv.h"
#include "src/HalcyonLineup.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    sim::Tv(fuzz::folder() / "tv").faults().add(sim::makeRule("IUtil::ReplaceServiceDb", "result=1"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::openTv();
    const std::filesystem::path settings = fuzz::writeInput("vconf.json", data, size);
    const std::string bundle = fuzz::folder() / "bundle.zip";
    sim::writeArchive(bundle, {settings});
    bnr_resp_data_s response = {R"({"version":"0.3","setting":{"antenna":1}})", bundle.c_str()};
    CHalcyonLineup lineup;
    try {
        CHalcyonLineup::sm_BnrCallback(static_cast<bnr_response_e>(102), &response, &lineup);
    } catch (const Json::Exception&) {  // of a file that does not hold what it says, by design
    }
    return 0;
}
