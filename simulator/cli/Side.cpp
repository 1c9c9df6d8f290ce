#include "simulator/cli/Side.h"

#include <fmt/format.h>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

// Beside a bundle, the failure folder and the store keep the metadata under different names.
std::optional<std::string> metadataOf(const fs::path& bundle, const std::string& metadata) {
    if (!metadata.empty()) {
        return sim::readFile(metadata, sim::limits::METADATA_BYTES);
    }
    for (const fs::path& beside :
         {fs::path(bundle.string() + sim::application::METADATA_SUFFIX), bundle.parent_path() / "metadata.json"}) {
        if (sim::pathExists(beside) && !sim::isFolder(beside)) {
            return sim::readFile(beside, sim::limits::METADATA_BYTES);
        }
    }
    return std::nullopt;
}

}  // namespace

std::string accountOf(const Session& session) {
    std::optional<sim::Tv> tv;
    try {
        tv.emplace(session.home, sim::Database::Access::Look);
    } catch (const sim::Error&) {
        return "";
    }
    return tv->account();
}

NamedBundle chooseBundle(const Session& session, const std::string& what, const std::string& metadata) {
    if (!what.empty() && sim::isRegularFile(what)) {
        return {what, std::nullopt, sim::Bundle(what, metadataOf(what, metadata))};
    }
    if (what.find('.') != std::string::npos || sim::isFolder(what)) {
        throw sim::Error(
            sim::Error::Kind::Missing,
            fmt::format("{}: no such bundle file; give a file, or a backup's id of halcyon-tv cloud list", what));
    }
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(session.cloud);
    sim::FetchedBackup fetched = sim::fetchBundle(*store, sim::chooseBackup(*store, what, accountOf(session)));
    return {"backup " + fetched.backup.id, fetched.backup, std::move(fetched.bundle)};
}

Side chooseSide(const Session& session, const std::string& what) {
    if (what.empty()) {
        return {session.home.string(), session.look().setup()};
    }
    if (sim::isFolder(what)) {
        return {what, sim::Tv(sim::normalised(what), sim::Database::Access::Look).setup()};
    }
    const NamedBundle named = chooseBundle(session, what, "");
    return {named.name, named.bundle.setup()};
}

}  // namespace cli
