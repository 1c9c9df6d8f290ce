// The cloud and bundles: lists, checks, comparisons, and imports.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/evp.h>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"
#include "simulator/web/Routes.h"

namespace sim {

namespace {

Json::Value listAll(const Lab& lab, const ApiRequest& /*request*/) {
    return object({{"cloud", lab.cloud()}, {"backups", lab.backups()}});
}

std::string inQuery(const ApiRequest& request, const char* name) {
    const auto found = request.query.find(name);
    if (found == request.query.end()) {
        throw Error(fmt::format("the address has no {}", name));
    }
    return found->second;
}

// [ACCOUNT/]CLIENT/CATEGORY/ID.
std::string pathIn(const ApiRequest& request) {
    return fmt::format("{}", fmt::join(request.parts, "/"));
}

Json::Value verified(const Lab& lab, const Bundle& bundle, const std::string& tv) {
    Json::Value value = toJson(bundle);
    value["restore"] = tv.empty() ? Json::Value() : toJson(foresee(bundle, lab.look(tv)));
    return value;
}

Json::Value showBackup(const Lab& lab, const ApiRequest& request) {
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    const FetchedBackup fetched = fetchBundle(*store, chooseBackup(*store, pathIn(request), ""));
    const auto tv = request.query.find("tv");
    Json::Value value = verified(lab, fetched.bundle, tv == request.query.end() ? "" : tv->second);
    value["backup"] = toJson(fetched.backup);
    return value;
}

Json::Value removeBackup(const Lab& lab, const ApiRequest& request) {
    const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
    store->remove(chooseBackup(*store, pathIn(request), ""));
    return listAll(lab, request);
}

// "tv:NAME" or "backup:ID".
Setup sideOf(const Lab& lab, const std::string& name) {
    const std::size_t colon = name.find(':');
    const std::string kind = name.substr(0, colon);
    const std::string rest = colon == std::string::npos ? "" : name.substr(colon + 1);
    if (kind == "tv") {
        return lab.look(rest).setup();
    }
    if (kind == "backup") {
        const std::unique_ptr<CloudStore> store = openCloud(lab.cloud());
        return fetchBundle(*store, chooseBackup(*store, rest, "")).bundle.setup();
    }
    throw Error(fmt::format("{} is neither tv:NAME nor backup:ID", inQuotes(name)));
}

Json::Value showDifference(const Lab& lab, const ApiRequest& request) {
    const std::string left = inQuery(request, "left");
    const std::string right = inQuery(request, "right");
    Json::Value value = toJson(compare(sideOf(lab, left), sideOf(lab, right)));
    value["left"] = toJson(left);
    value["right"] = toJson(right);
    return value;
}

// The bytes of a text in base64.
std::string decoded(const std::string& text) {
    std::string bytes(text.size() / 4 * 3, '\0');
    const int size = text.size() % 4 != 0 ? -1
                                          : EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                                            reinterpret_cast<const unsigned char*>(text.data()),
                                                            static_cast<int>(text.size()));
    if (size < 0) {
        throw Error("the body's zip is no base64");
    }
    const std::size_t end = text.find_last_not_of('=');
    bytes.resize(static_cast<std::size_t>(size) - (end == std::string::npos ? 0 : text.size() - end - 1));
    return bytes;
}

// A bundle that the browser has sent, as a file of a name without folders.
class SentBundle {
public:
    explicit SentBundle(const Json::Value& body) {
        const std::filesystem::path name = std::filesystem::path(textIn(body, "name")).filename();
        m_file = m_scratch / (name.empty() || name == "." || name == ".." ? "bundle.zip" : name.string());
        writeFile(m_file, decoded(textIn(body, "zip")));
        const std::string metadata = textIn(body, "metadata", "");
        m_bundle.emplace(m_file, metadata.empty() ? std::nullopt : std::optional(metadata));
    }

    const Bundle& bundle() const { return *m_bundle; }
    const std::filesystem::path& file() const { return m_file; }

private:
    ScratchFolder m_scratch;
    std::filesystem::path m_file;
    std::optional<Bundle> m_bundle;
};

Json::Value inspect(const Lab& lab, const ApiRequest& request) {
    const SentBundle sent(request.body);
    const std::string tv = textIn(request.body, "tv");
    Json::Value value = verified(lab, sent.bundle(), tv);
    value["difference"] = toJson(compare(lab.look(tv).setup(), sent.bundle().setup()));
    return value;
}

Json::Value import(const Lab& lab, const ApiRequest& request) {
    const SentBundle sent(request.body);
    const Tv tv = lab.look(textIn(request.body, "tv"));
    return object({{"backup", importBundle(*openCloud(lab.cloud()), sent.bundle(), sent.file(), tv.account(), &tv)}});
}

}  // namespace

std::vector<Route> cloudRoutes() {
    return {{"GET", "cloud", &listAll},
            {"GET", "cloud/*/*/*", &showBackup},
            {"DELETE", "cloud/*/*/*", &removeBackup},
            {"GET", "cloud/*/*/*/*", &showBackup},
            {"DELETE", "cloud/*/*/*/*", &removeBackup},
            {"GET", "diff", &showDifference},
            {"POST", "bundles/inspect", &inspect},
            {"POST", "bundles/import", &import}};
}

}  // namespace sim
