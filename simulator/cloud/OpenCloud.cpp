#include "simulator/cloud/OpenCloud.h"

#include <utility>

#include "simulator/cloud/FolderStore.h"
#include "simulator/cloud/ObjectStore.h"

namespace sim {

std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer, std::filesystem::path notes) {
    if (place.find("://") != std::string::npos) {
        return std::make_unique<ObjectStore>(place, std::move(observer), std::move(notes));
    }
    return std::make_unique<FolderStore>(place);
}

StoreOpener openLater(const std::string& place) {
    return [place, store = std::shared_ptr<const CloudStore>()]() mutable -> const CloudStore& {
        if (!store) {
            store = openCloud(place);
        }
        return *store;
    };
}

StoreOpener opened(const CloudStore& store) {
    return [&store]() -> const CloudStore& { return store; };
}

}  // namespace sim
