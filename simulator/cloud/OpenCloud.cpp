#include "simulator/cloud/OpenCloud.h"

#include <utility>

#include "simulator/cloud/FolderStore.h"
#include "simulator/cloud/ObjectStore.h"

namespace sim {

std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer) {
    if (place.find("://") != std::string::npos) {
        return std::make_unique<ObjectStore>(place, std::move(observer));
    }
    return std::make_unique<FolderStore>(place);
}

}  // namespace sim
