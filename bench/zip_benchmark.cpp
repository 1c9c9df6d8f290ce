// CZipUtil beside a bare loop. Each packs $HALCYON_BENCH_FOLDER/set, which is gone then, or unpacks set.zip there,
// once.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/BareZip.h"
#include "src/ZipUtil.h"

namespace {

bool packOurs(const std::string& folder, const std::string& archive) {
    return CZipUtil().CreateZipFile(folder, archive);
}

bool unpackOurs(const std::string& archive, const std::string& folder) {
    return CZipUtil().UnzipFile(archive, folder);
}

using Operation = bool (*)(const std::string& from, const std::string& to);

void measure(benchmark::State& state, Operation operation, const std::string& from, const std::string& to) {
    for ([[maybe_unused]] auto round : state) {
        if (!operation(from, to)) {
            state.SkipWithError("failed");
        }
    }
}

void add(const char* name, Operation operation, const std::string& from, const std::string& to) {
    benchmark::RegisterBenchmark(name, measure, operation, from, to)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    const char* folder = std::getenv("HALCYON_BENCH_FOLDER");
    if (folder == nullptr) {
        std::fprintf(stderr, "zip-benchmark: $HALCYON_BENCH_FOLDER is not set; ./dev bench sets it\n");
        return 2;
    }
    // Memory is kept. When each file gives all back to the system, that takes longer than packing it, and chance
    // decides whether one of the two does.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    const std::string place = folder;
    add("pack/ours", &packOurs, place + "/set/", place + "/set.zip");
    add("pack/bare", &packBare, place + "/set/", place + "/set.zip");
    add("unpack/ours", &unpackOurs, place + "/set.zip", place + "/out/");
    add("unpack/bare", &unpackBare, place + "/set.zip", place + "/out/");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
