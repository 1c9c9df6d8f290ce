#include "simulator/reports/Import.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"

namespace sim {

std::string importBundle(CloudStore& store, const Bundle& bundle, const std::filesystem::path& file,
                         const std::string& account, const Tv* tv) {
    if (!bundle.problem().empty()) {
        throw Error(Error::Kind::Damaged, fmt::format("{}; give a bundle", bundle.problem()));
    }
    NewBackup backup;
    static_cast<Address&>(backup) = {account, application::CLIENT_ID, application::CATEGORY};
    backup.metadata = bundle.metadataText().value_or("");
    backup.device = deviceOf(bundle);
    if (!bundle.metadataText()) {
        backup.metadata = metadataFor(tv->antenna());
    }
    if (bundle.part(Item::Channels).state == PartState::Whole) {
        backup.services = bundle.services().counts().services;
    }
    return store.put(backup, file);
}

}  // namespace sim
