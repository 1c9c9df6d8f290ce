#include "simulator/cli/Side.h"

#include <fmt/format.h>
#include <json/value.h>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Limits.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

// The file with a bundle file's metadata: the one that was given; else the one of its own name beside it, or, of a
// bundle in a folder store, the store's. Empty if there is none.
fs::path metadataFileOf(const fs::path& bundle, const std::string& given) {
    if (!given.empty()) {
        return given;
    }
    const fs::path own = bundle.string() + sim::application::METADATA_SUFFIX;
    const fs::path stored = bundle.parent_path() / "metadata.json";
    const bool isStored = bundle.filename() == "bundle.zip" && sim::isRegularFile(bundle.parent_path() / "info.json");
    const auto isThere = [](const fs::path& path) { return sim::pathExists(path) && !sim::isFolder(path); };
    return isThere(own) ? own : isStored && isThere(stored) ? stored : fs::path();
}

NamedBundle readBundleFile(const std::string& file, const std::string& metadata) {
    const fs::path beside = metadataFileOf(file, metadata);
    std::optional<std::string> text;
    if (!beside.empty()) {
        text = sim::readFile(beside, sim::limits::METADATA_BYTES);
        Json::Value ignored;
        if (!sim::parseJson(*text, ignored)) {
            throw sim::Error(
                fmt::format("{}: the metadata of {}, but no JSON text; give others with --metadata, or "
                            "remove the file. The bundle itself was not looked at",
                            beside.string(), file));
        }
    }
    return {file, std::nullopt, beside.string(), sim::Bundle(file, text)};
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
        return readBundleFile(what, metadata);
    }
    if (sim::isFolder(what)) {
        throw sim::Error(fmt::format("{} is a folder; give the bundle file in it", what));
    }
    if (sim::pathExists(what) || what == "-") {
        throw sim::Error(fmt::format("{} is no regular file; save the bundle to a file, and give that", what));
    }
    if (what.find('.') != std::string::npos) {
        throw sim::Error(
            sim::Error::Kind::Missing,
            fmt::format("{}: no such bundle file; give a file, or a backup's id of halcyon-tv cloud list", what));
    }
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const sim::BackupName name = sim::chooseBackup(*store, what, accountOf(session));
    try {
        sim::FetchedBackup fetched = sim::fetchBundle(*store, name);
        return {"backup " + fetched.backup.id, fetched.backup, "", std::move(fetched.bundle)};
    } catch (const sim::Error& error) {
        if (error.kind() == sim::Error::Kind::Damaged) {
            throw DamagedBundle(error.what());
        }
        throw;
    }
}

Side chooseSide(const Session& session, const std::string& what) {
    if (what.empty()) {
        return {session.home.string(), session.look().setup(), {}};
    }
    if (sim::isFolder(what)) {
        return {what, sim::Tv(sim::normalised(what), sim::Database::Access::Look).setup(), {}};
    }
    const NamedBundle named = chooseBundle(session, what, "");
    return {named.name, named.bundle.setup(), named.bundle.problems()};
}

}  // namespace cli
