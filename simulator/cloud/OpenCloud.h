// Opens a cloud store of the kind that its place names.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "simulator/cloud/CloudStore.h"

namespace sim {

// Opens the store at s3://BUCKET[/PREFIX], or in a folder. Throws Error if the place is neither, or if the environment
// does not say how to reach an object store. `notes` is a file that tells other processes which of its addresses are
// down; empty: none.
std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer = {},
                                      std::filesystem::path notes = {});

// Opens a store when it is first called, or throws Error.
using StoreOpener = std::function<const CloudStore&()>;
StoreOpener openLater(const std::string& place);
StoreOpener opened(const CloudStore& store);

}  // namespace sim
