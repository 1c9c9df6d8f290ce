#include "simulator/device/FaultInjector.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

std::string corrupted(std::string content) {
    const std::size_t begin = content.size() / 3;
    for (std::size_t i = begin; i < std::min(begin + 16, content.size()); ++i) {
        content[i] = static_cast<char>(~content[i]);
    }
    return content;
}

}  // namespace

std::optional<Hit> FaultInjector::next(const PlatformCall& call) {
    const int nth = ++m_counts[call.name];
    const auto rule = std::find_if(m_rules.begin(), m_rules.end(), [&](const FaultRule& each) {
        return each.call == call.name && each.firesAt(m_run, nth);
    });
    if (rule == m_rules.end()) {
        return std::nullopt;
    }
    // A sequence of failures ends with its last one, which then goes on.
    const auto step = std::min(static_cast<std::size_t>(rule->fired), rule->failures.size() - 1);
    const Hit hit{rule->id, rule->failures[step]};
    ++rule->fired;
    try {
        m_faults.countFired(rule->id);
    } catch (const Error&) {  // the disk may be full; the rule fires all the same
    }
    return hit.failure.kind == Failure::Kind::Works ? std::nullopt : std::optional(hit);
}

bool fails(const std::optional<Hit>& hit, Failure::Kind kind) {
    return hit && hit->failure.kind == kind;
}

void replaceByLink(const fs::path& file, const fs::path& target) {
    removeFile(file);
    if (::symlink(target.c_str(), file.c_str()) != 0) {
        throw Error::ofSystem(file, "cannot link");
    }
}

void damageFile(const fs::path& file, Damage damage) {
    switch (damage) {
        case Damage::Truncate:
            writeFile(file, readFile(file).substr(0, static_cast<std::size_t>(sizeOf(file) / 2)));
            break;
        case Damage::Corrupt:
            writeFile(file, corrupted(readFile(file)));
            break;
        case Damage::Empty:
            writeFile(file, "");
            break;
        case Damage::Missing:
            removeFile(file);
            break;
        case Damage::Dangling:
            replaceByLink(file, "nowhere");
            break;
        case Damage::Unwritable:  // see Device::damage()
            break;
    }
}

}  // namespace sim
