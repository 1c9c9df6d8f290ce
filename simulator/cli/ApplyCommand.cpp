// The command that applies an edited table of channels to a TV.
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/lineup/TableEdit.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Tv.h"

namespace cli {

namespace {

struct ApplyOptions {
    std::string table;
    std::string encoding;
    bool removesMissing = false;
};

int apply(const Session& session, const ApplyOptions& options) {
    // Not during a run, as for `set`.
    const sim::FolderLock lock = sim::lockTv(session.home, std::chrono::seconds(0));
    sim::Tv tv(session.home);
    tv.requireOwnChannels("edit them");
    sim::TableEdit edit;
    tv.serviceDb().change([&](sim::Database& database) {
        edit = sim::applyTable(database, tv.services(), options.table, options.encoding, options.removesMissing);
    });
    tv.watchWhatIsThere();
    printLinesOfKinds(stderr, edit.problems);
    printLinesOfKinds(stderr, edit.notes);
    const Json::Value json = sim::object({{"changed", edit.changed},
                                          {"missing", edit.missing},
                                          {"removed", options.removesMissing},
                                          {"skipped", edit.skipped},
                                          {"problems", edit.problems},
                                          {"notes", edit.notes}});
    return answer(session, json, [&] {
        print("{} changed; {} not in the table, and {}; {} skipped.\n", sim::plural(edit.changed, "channel"),
              edit.missing, options.removesMissing ? "removed" : "kept", sim::plural(edit.skipped, "row"));
    });
}

}  // namespace

void addApplyCommand(CLI::App& app, Action& chosen) {
    const auto applying = std::make_shared<ApplyOptions>();
    CLI::App* edited = addCommand(
        app, "apply",
        "Give channels what a table (CSV) has of them, such as an edited export: number, name, favourites, lock, hide",
        "halcyon-tv export --format csv > list.csv; halcyon-tv apply list.csv", chosen,
        [applying](const Session& session) { return apply(session, *applying); });
    edited->add_option("table", applying->table, "the table; its rows say by their identities which channels they are")
        ->required();
    edited->add_option("--encoding", applying->encoding, "of the table, as iconv calls it (default: as for init)");
    edited->add_flag("--remove-missing", applying->removesMissing, "remove the channels that the table does not have");
}

}  // namespace cli
