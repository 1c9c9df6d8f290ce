#include "simulator/device/Device.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/device/OwnPath.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Services whose application was killed may hold the lock for another moment.
constexpr std::chrono::milliseconds PATIENCE{500};

// Holds nothing if the caller has the lock: a second descriptor would wait for the first forever.
FolderLock lockHome(const ServiceOptions& options) {
    if (options.lock && FolderLock::isOf(options.home, *options.lock)) {
        return {};
    }
    return lockTv(options.home, std::max<std::chrono::milliseconds>(options.patience, PATIENCE));
}

// What the keeper cannot be asked for is an error before a run begins.
std::unique_ptr<ListKeeper> openRefreshed(Tv& tv) {
    const Keeper kept = tv.keeper();
    struct stat status = {};
    // Its commands are run as this process's user.
    if (!kept.kind.empty() && (::stat(tv.home().c_str(), &status) != 0 || status.st_uid != ::geteuid())) {
        throw Error(
            fmt::format("the TV at {} is another user's, and names commands: run it as that user", tv.home().string()));
    }
    std::unique_ptr<ListKeeper> keeper = openKeeper(kept, &complain);
    if (keeper) {
        keeper->refresh(tv);
    }
    return keeper;
}

}  // namespace

Device::Device(const ServiceOptions& options, Session& conversation, int process)
    : m_lock(lockHome(options)),
      session(conversation),
      application(process),
      tv(options.home),
      keeper(openRefreshed(tv)),
      cloud(openCloud(
          options.cloud,
          [this](const std::string& request, const std::string& outcome) {
              lastOutcome = outcome;
              record.call(calls::cloud_request.name, request, outcome, std::nullopt);
          },
          options.home / DOWN_NOTES)),
      record(tv, loop, application, options.keep),
      faults(tv.faults(), record.run()),
      m_started(tv.now()) {
    // The times of the log are local, in the TV's zone.
    if (const std::string zone = tv.clock().zone; !zone.empty()) {
        ::setenv("TZ", zone.c_str(), 1);
        ::tzset();
    }
    session.setClock([this] { return timeForApplication(); });
    // Confinement opens both folders, so they must be there before the application is welcomed.
    for (const fs::path& folder : foldersOfApplication(options.home)) {
        makeFolders(folder);
    }
    onDiskStep([this] { cutPowerIfRuled(); });
}

Device::~Device() {
    // Both would call an object that is being destroyed.
    onDiskStep({});
    session.setClock({});
    try {
        // The TV's clock goes on by what the run took on the loop's, unless it stands.
        tv.passTime(loop.now());
    } catch (const Error& error) {
        complain(error.what());
    }
    if (record.dropped() > 0) {
        complain(fmt::format("{} of this run could not be written: {}",
                             plural(static_cast<std::uint64_t>(record.dropped()), "record"), record.reason()));
    }
}

std::optional<std::chrono::milliseconds> Device::timeForApplication() const {
    return tv.clock().time ? std::optional(now()) : std::nullopt;
}

void Device::noLongerAwaited(const std::string& what) {
    const auto found = awaited.find(what);
    if (found != awaited.end()) {
        awaited.erase(found);
    }
}

void Device::keepMetadata() const {
    if (bundleName.empty()) {
        return;
    }
    try {
        // Beside the bundle, where the commands on bundles look for the metadata of a file.
        const OwnPath kept(tv.home(), tv.home() / application::FAILURE_FOLDER / bundleName);
        if (kept.isRegularFile()) {
            kept.use(
                [&](const fs::path& path) { writeFile(path.string() + application::METADATA_SUFFIX, bundleMetadata); });
        }
    } catch (const Error& problem) {
        if (problem.kind() != Error::Kind::Missing) {
            complain(problem.what());
        }
    }
}

void Device::damage(const std::string& path, Damage damage) {
    const OwnPath own(tv.home(), path);
    if (damage != Damage::Unwritable) {
        own.use([&](const fs::path& file) { damageFile(file, damage); });
        return;
    }
    // Only a descriptor of its own process leads the application to such a copy.
    const wire::Text copy = session.deliver<wire::EventId::seal>(path);
    if (!copy) {
        throw Error(fmt::format("{}: cannot be sealed", path));
    }
    own.use([&](const fs::path& file) { replaceByLink(file, *copy); });
}

void Device::cutPowerIfRuled() {
    if (const std::optional<Hit> hit = faults.next(calls::disk)) {
        record.call(calls::disk.name, "", "power cut", hit->rule);
        // The application first: whichever dies last could still write. Neither may clean up.
        ::kill(application, SIGKILL);
        std::raise(SIGKILL);
    }
}

void complain(const std::string& message) {
    std::fprintf(stderr, "%s: %s\n", application::NAME, shown(message).c_str());
}

}  // namespace sim
