#include "simulator/cli/Side.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Places.h"
#include "simulator/tv/Application.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

bool isFolder(const std::string& what) {
    std::error_code error;
    return fs::is_directory(what, error);
}

// The metadata that is known of a bundle file: as the failure folder has it, or as the store does.
std::optional<std::string> metadataOf(const fs::path& bundle, const std::string& metadata) {
    if (!metadata.empty()) {
        return sim::readFile(metadata);
    }
    std::error_code error;
    for (const fs::path& beside :
         {fs::path(bundle.string() + sim::application::METADATA_SUFFIX), bundle.parent_path() / "metadata.json"}) {
        if (fs::is_regular_file(beside, error)) {
            return sim::readFile(beside);
        }
    }
    return std::nullopt;
}

}  // namespace

sim::StoredBackup chooseBackup(const sim::CloudStore& store, const std::string& id) {
    std::vector<sim::StoredBackup> found;
    for (const sim::StoredBackup& backup : store.list()) {
        const std::string path = fmt::format("{}/{}/{}", backup.clientId, backup.category, backup.id);
        if (id.empty() ? backup.damage.empty() : id == backup.id || id == path) {
            found.push_back(backup);
        }
    }
    if (found.empty()) {
        throw sim::Error(sim::Error::Kind::Missing, fmt::format("{} holds no backup{}; see: halcyon-tv cloud list",
                                                                store.place(), id.empty() ? "" : " " + id));
    }
    if (!id.empty() && found.size() > 1) {
        throw sim::Error(fmt::format("{} holds several backups {}; give CLIENT/CATEGORY/ID, such as {}/{}/{}",
                                     store.place(), id, found[0].clientId, found[0].category, id));
    }
    return found.back();
}

NamedBundle chooseBundle(const Place& place, const std::string& what, const std::string& metadata) {
    std::error_code error;
    if (!what.empty() && fs::is_regular_file(what, error)) {
        return {what, std::nullopt, sim::Bundle(what, metadataOf(what, metadata))};
    }
    if (what.find('.') != std::string::npos || isFolder(what)) {
        throw sim::Error(
            sim::Error::Kind::Missing,
            fmt::format("{}: no such bundle file; give a file, or a backup's id of halcyon-tv cloud list", what));
    }
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(place.cloud);
    const sim::StoredBackup backup = chooseBackup(*store, what);
    return {"backup " + backup.id, backup, sim::Bundle::of(*store, backup)};
}

Side chooseSide(const Place& place, const std::string& what) {
    if (isFolder(what)) {
        return {what, sim::setUpOf(sim::Tv(sim::normalised(what), sim::Database::Access::Look))};
    }
    const NamedBundle named = chooseBundle(place, what, "");
    return {named.name, named.bundle.setUp()};
}

Side thisTv(const Place& place) {
    return {place.home.string(), sim::setUpOf(sim::Tv(place.home, sim::Database::Access::Look))};
}

}  // namespace cli
