// A call of the platform, and a log record, beside what a call must cost at least: a byte to another process and back
// over a pair of sockets. $HALCYON_TV_HOME is a TV for it.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/cloud_backup.h"
#include "platform/system_log.h"
#include "simulator/base/Descriptor.h"

namespace {

void call(benchmark::State& state) {
    bnr_deinit("nobody");  // the first opens the connection
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(bnr_deinit("nobody"));
    }
}
BENCHMARK(call)->UseRealTime();

void log(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        CCLogger::AddLogger("File", "Function", 1, "a record of %d characters", 28);
    }
    bnr_deinit("nobody");  // the services have taken them all
}
BENCHMARK(log)->UseRealTime()->Iterations(20'000);

void echo(const sim::Descriptor& socket) {
    for (char byte = 0; ::read(socket.get(), &byte, 1) == 1;) {
        if (::write(socket.get(), &byte, 1) != 1) {
            return;
        }
    }
}

void roundTrip(benchmark::State& state) {
    sim::DescriptorPair ends = sim::socketPair("the benchmark");
    const pid_t other = ::fork();
    if (other == 0) {
        ends[0].reset();
        echo(ends[1]);
        ::_exit(0);
    }
    ends[1].reset();
    char byte = 0;
    for ([[maybe_unused]] auto round : state) {
        if (::write(ends[0].get(), &byte, 1) != 1 || ::read(ends[0].get(), &byte, 1) != 1) {
            state.SkipWithError("failed");
        }
    }
    ends[0].reset();
    ::waitpid(other, nullptr, 0);
}
BENCHMARK(roundTrip)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
