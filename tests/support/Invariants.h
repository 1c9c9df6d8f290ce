// What holds after every run, of the TV, the cloud and what the caller was told.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/TestTv.h"

namespace test {

// Each part of the TV is as it was before the run or as it is after a healthy one, and the IP services are the TV's
// own. The CI module's files are not looked at: the application doesn't see an unpacked file's last write fail.
void expectWholeTv(const TestTv& tv, const sim::Setup& before, const sim::Setup& after);

// Nothing half-made is left in the TV or in the cloud.
void expectTidy(const TestTv& tv);

// Every backup in the TV's cloud can be read whole, except one that its run's verdict calls damaged. Returns the
// number of services of each whose channel database is whole.
std::vector<std::uint64_t> expectWholeCloud(const TestTv& tv);

// What the caller and the cloud were told of a restore is what happened to the channel database.
void expectTruth(const sim::Run& run, bool isReplaced);

}  // namespace test
