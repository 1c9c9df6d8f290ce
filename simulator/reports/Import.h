// Bundles from elsewhere, brought into the store.
#pragma once

#include <filesystem>
#include <string>

#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/tv/Tv.h"

namespace sim {

// Puts the bundle file into the store as a new backup of an account; its id. Where its metadata is not known, it gets
// some that lets `tv` restore it and leaves the viewing state of that TV alone. Throws Error, also where the file is no
// bundle.
std::string importBundle(CloudStore& store, const Bundle& bundle, const std::filesystem::path& file,
                         const std::string& account, const Tv* tv);

}  // namespace sim
