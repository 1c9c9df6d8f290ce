// Applies the fault rules to the calls of one run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/tv/Faults.h"

namespace sim {

// A rule that has fired, and the failure that it is about.
struct Hit {
    std::int64_t rule = 0;
    Failure failure;
};

class FaultInjector {
public:
    FaultInjector(Faults& faults, std::int64_t run) : m_faults(faults), m_rules(faults.list()), m_run(run) {}

    // Counts a call, and the rule that fires at it. Returns nothing if none does, or it says that the call works.
    std::optional<Hit> next(const PlatformCall& call);

private:
    Faults& m_faults;
    std::vector<FaultRule> m_rules;
    std::int64_t m_run;
    std::map<std::string_view, int> m_counts;
};

bool fails(const std::optional<Hit>& hit, Failure::Kind kind);

// Throws Error if that fails.
void replaceByLink(const std::filesystem::path& file, const std::filesystem::path& target);

// Damages a file in any way but Damage::Unwritable, which takes more than the file. Throws Error if that fails.
void damageFile(const std::filesystem::path& file, Damage damage);

}  // namespace sim
