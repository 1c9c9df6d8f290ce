// Whose a TV is, and its backups: the cloud keeps those of different accounts apart.
#pragma once

#include <string>

namespace sim {

constexpr char DEFAULT_ACCOUNT[] = "default";

// Throws Error where a text is no account: letters, digits, '.', '_' and '-', not '.' first, and 64 of them at most.
void requireAccount(const std::string& account);

}  // namespace sim
