// Channel databases from outside.
#include "fuzz/Fuzz.h"
#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/lineup/ServiceDb.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path archive = fuzz::folder() / "ServiceDB.zip";
    const std::filesystem::path place = fuzz::emptyFolder("built");
    sim::writeArchive(archive, {fuzz::writeInput("services.db", data, size)});
    if (!sim::adoptServices(archive, place / "services.db")) {
        const sim::Services services = sim::ServiceDb(place).services();
        std::uint64_t count = 0;
        services.forEach([&](const sim::Service&) { ++count; });
        if (count != services.counts().services) {
            __builtin_trap();  // what was accepted can be read
        }
    }
    return 0;
}
