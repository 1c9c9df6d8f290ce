#include "tests/support/Foretold.h"

#include <algorithm>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/CloudReport.h"

namespace test {

namespace {

// The value of the last argument that begins with `key`.
std::optional<std::string> valueOf(const Strings& arguments, const std::string& key) {
    const auto found = std::find_if(arguments.rbegin(), arguments.rend(),
                                    [&](const std::string& each) { return each.compare(0, key.size(), key) == 0; });
    return found == arguments.rend() ? std::nullopt : std::optional(found->substr(key.size()));
}

// What the run gets from the cloud; nothing if it gets none.
std::optional<sim::FetchedBackup> fetchNewest(const TestTv& tv) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(tv.cloud);
    try {
        return sim::fetchBundle(*store, sim::chooseBackup(*store, "", tv.open().account()));
    } catch (const sim::Error&) {
        return std::nullopt;
    }
}

}  // namespace

Foretold::Foretold(const TestTv& tv, const Strings& arguments) : m_tv(tv) {
    const bool isDisturbed = !tv.isConfined || !tv.open().faults().list().empty() ||
                             sim::isRegularFile(tv.data.parent_path()) ||
                             std::find(arguments.begin(), arguments.end(), "--backup") != arguments.end();
    if (isDisturbed || !sim::application::isRestore(valueOf(arguments, "operation=").value_or(""))) {
        return;
    }
    if (const std::optional<sim::FetchedBackup> fetched = fetchNewest(tv)) {
        m_foresight =
            sim::foresee(fetched->bundle, tv.open(), valueOf(arguments, "scan_activated=").value_or("0") != "0");
    }
}

void Foretold::expectTrue() const {
    if (!m_foresight) {
        return;
    }
    const sim::Verdict verdict = m_tv.verdict();
    const auto what = [](const auto& found) {
        Strings texts = {std::string(sim::nameOf(found.outcome)) + ", " + std::string(sim::nameOf(found.cause)),
                         found.reception ? sim::words(*found.reception) : ""};
        for (const sim::ItemVerdict& item : found.items) {
            texts.push_back(std::string(sim::nameOf(item.item)) + " " + std::string(sim::nameOf(item.state)) + " " +
                            item.detail);
        }
        return texts;
    };
    EXPECT_EQ(what(*m_foresight), what(verdict)) << "foretold: " << m_foresight->why << "\nfound: " << verdict.why;
}

}  // namespace test
