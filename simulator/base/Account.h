// Whose a TV is, and its backups: the cloud keeps those of different accounts apart.
#pragma once

namespace sim {

constexpr char DEFAULT_ACCOUNT[] = "default";

}  // namespace sim
