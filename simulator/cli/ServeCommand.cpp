// The command that serves a page for the browser.
#include <cstdio>
#include <memory>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/cli/Command.h"
#include "simulator/reports/ToJson.h"
#include "simulator/web/Routes.h"
#include "simulator/web/Server.h"

namespace cli {

namespace {

struct Options {
    sim::ServeOptions serve;
    std::string lab;
    std::string answer;
};

int serve(const Session& session, const Options& options) {
    const std::filesystem::path folder = options.lab.empty() ? "" : sim::normalised(options.lab);
    const sim::Lab lab(session.home, folder, session.cloud);
    if (!folder.empty() && !sim::isFolder(folder)) {
        throw sim::Error(sim::Error::Kind::Missing,
                         fmt::format("{}: no such folder; give the one that holds the TVs", folder.string()));
    }
    if (!options.answer.empty()) {
        return sim::answerAsProcess(lab, options.answer);
    }
    sim::serve(lab, options.serve, [&](const std::string& address) {
        answer(session, sim::object({{"address", address}}),
               [&] { print("{}\nOpen this address in a browser on this machine; Ctrl-C ends.\n", address); });
        // The command does not end: a program that waits for the address by a pipe would never get it.
        std::fflush(stdout);
    });
    return DONE;
}

}  // namespace

void addServeCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    CLI::App* serving = addCommand(app, "serve", "Show the TV, the cloud and the runs on a page in the browser",
                                   "halcyon-tv serve --lab build/demo --cloud build/demo/cloud", chosen,
                                   [options](const Session& session) { return serve(session, *options); });
    serving->add_option("--port", options->serve.port, "port on this machine, 0 for any that is free")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    serving->add_option("--lab", options->lab, "folder with several TVs, to show them side by side");
    serving->add_option("--page", options->serve.page, "folder to take the page's files from, while working on them")
        ->check(CLI::ExistingDirectory);
    serving->add_option("--answer", options->answer, "answer one request of a server, and end")->group("");
}

}  // namespace cli
