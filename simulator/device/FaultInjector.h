// Applies the fault rules to the calls of one run.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/tv/Faults.h"

namespace sim {

class FaultInjector {
public:
    explicit FaultInjector(Faults& faults) : m_faults(faults), m_rules(faults.list()) {}

    // Counts a call, and the rule that makes it fail. Returns nothing if none does.
    std::optional<FaultRule> next(const PlatformCall& call);

private:
    Faults& m_faults;
    std::vector<FaultRule> m_rules;
    std::map<std::string_view, int> m_counts;
};

bool fails(const std::optional<FaultRule>& hit, Failure::Kind kind);

// Throws Error if that fails.
void replaceByLink(const std::filesystem::path& file, const std::filesystem::path& target);

// Damages a file in any way but Damage::Unwritable, which takes more than the file. Throws Error if that fails.
void damageFile(const std::filesystem::path& file, Damage damage);

}  // namespace sim
