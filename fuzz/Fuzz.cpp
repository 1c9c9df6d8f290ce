#include "fuzz/Fuzz.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "simulator/base/Environment.h"
#include "simulator/base/Files.h"
#include "simulator/base/Sandbox.h"
#include "simulator/client/Connection.h"
#include "simulator/lineup/ChannelList.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace fuzz {

namespace {

fs::path makeFolder() {
    const char* given = std::getenv("FUZZ_FOLDER");
    if (given == nullptr || !fs::is_directory(given)) {
        std::fprintf(stderr, "fuzz: set FUZZ_FOLDER to a folder of its own; ./dev fuzz does\n");
        std::_Exit(2);
    }
    fs::path folder = fs::canonical(given);
    // libFuzzer writes what it finds into the working folder.
    if (!sim::confineWritingTo({folder, fs::current_path()})) {
        std::fprintf(stderr, "fuzz: this kernel cannot confine a process, and entry names lead anywhere\n");
        std::_Exit(2);
    }
    return folder;
}

// Before everything else: the application's classes open the TV before main().
struct EarlyTv {
    EarlyTv() {
        const fs::path home = folder() / "tv";
        ::setenv(sim::HOME_VARIABLE, home.c_str(), 1);
        ::setenv(sim::CLOUD_VARIABLE, (folder() / "cloud").c_str(), 1);
        ::setenv(sim::KEEP_VARIABLE, "2", 1);  // or the records of hundreds of thousands of inputs fill the disk
        std::setvbuf(stderr, nullptr, _IOFBF, 1 << 16);
        fs::remove_all(home);
        const fs::path list = folder() / "list.conf";
        sim::writeFile(list, "Eins:11361:HC23:S19.2E:22000:101:102:0:0:1001:1:1:0\n");
        sim::Tv::create(
            home, [&](sim::ChannelSink& sink) { sim::readChannelList(list, sink); }, "fuzz");
    }
};
__attribute__((init_priority(101))) EarlyTv early;

}  // namespace

const fs::path& folder() {
    static const fs::path made = makeFolder();
    return made;
}

fs::path emptyFolder(const std::string& name) {
    fs::path path = folder() / name;
    fs::remove_all(path);
    fs::create_directories(path);
    return path;
}

fs::path writeInput(const std::string& name, const std::uint8_t* data, std::size_t size) {
    fs::path path = folder() / name;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    return path;
}

void openTv() {
    constexpr int CALLS_OF_A_RUN = 200;
    static int calls = 0;
    if (++calls % CALLS_OF_A_RUN == 0) {
        client::Connection::close();
    }
    client::Connection::current();
}

}  // namespace fuzz
