// What is foretold of a restore, held against what becomes of it.
#pragma once

#include <optional>

#include "simulator/reports/Foresight.h"
#include "tests/support/TestTv.h"

namespace test {

class Foretold {
public:
    // Foretells the run of a launch; not if it is no restore, or something on its way disturbs it.
    Foretold(const TestTv& tv, const Strings& arguments);

    // The newest run on the TV has come to that.
    void expectTrue() const;

private:
    const TestTv& m_tv;
    std::optional<sim::Foresight> m_foresight;
};

}  // namespace test
