// Opens a cloud store of the kind that its place names.
#pragma once

#include <memory>
#include <string>

#include "simulator/cloud/CloudStore.h"

namespace sim {

// Opens the store at s3://BUCKET[/PREFIX], or in a folder. Throws Error if the place is neither, or if the environment
// does not say how to reach an object store.
std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer = {});

}  // namespace sim
