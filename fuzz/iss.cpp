// Iss databases from outside.
#include "fuzz/Fuzz.h"
#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/lineup/IssDb.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path archive = fuzz::folder() / "issDB.zip";
    const std::filesystem::path built = fuzz::emptyFolder("built") / "iss.db";
    sim::writeArchive(archive, {fuzz::writeInput("iss.db", data, size)});
    try {
        sim::adoptIss(archive, built);
    } catch (const sim::Error&) {
        return 0;
    }
    sim::IssDb(built).entries();  // what was accepted can be read
    return 0;
}
