#include "simulator/reports/TvReport.h"

#include "simulator/base/Clock.h"
#include "simulator/base/Files.h"
#include "simulator/lineup/Application.h"

namespace fs = std::filesystem;

namespace sim {

fs::path unpackFolderOf(const Tv& tv) {
    return tv.home() / application::DATA_FOLDER / application::UNPACK_FOLDER;
}

std::vector<std::string> leftoversOf(const Tv& tv) {
    std::vector<std::string> leftovers;
    const fs::path folder = unpackFolderOf(tv);
    std::error_code error;
    // A folder that is not there, as before the first restore, holds nothing.
    for (auto file = fs::recursive_directory_iterator(folder, error);
         !error && file != fs::recursive_directory_iterator(); file.increment(error)) {
        if (!file->is_directory(error)) {
            leftovers.push_back(file->path().lexically_relative(folder));
        }
    }
    return leftovers;
}

ChannelCounts countChannels(const Services& services) {
    ChannelCounts counts;
    counts.favourites.resize(application::FAVOURITE_LISTS);
    services.forEach([&](const Service& service) {
        ++counts.services;
        ++counts.byType[service.type];
        ++counts.byGroup[service.groupName];
        ++counts.byProvider[service.provider];
        for (std::size_t list = 0; list < counts.favourites.size(); ++list) {
            counts.favourites[list] += service.*FAVOURITE_PLACES[list] > 0 ? 1U : 0U;
        }
        counts.locked += service.locked ? 1U : 0U;
        counts.hidden += service.hidden ? 1U : 0U;
        counts.renamed += service.renamed ? 1U : 0U;
    });
    return counts;
}

TvReport reportTv(const Tv& tv) {
    TvReport report;
    report.account = tv.account();
    report.home = tv.home();
    report.counts = tv.services().counts();
    report.viewing = tv.viewing();
    report.watching = tv.services().find(report.viewing.serviceId);
    report.antenna = tv.antenna();
    report.isScanning = tv.isScanning();
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        report.favourites.push_back(tv.settings().favouriteName(list));
    }
    report.iss = tv.issDb().entries();
    for (const std::string& path : tv.ciFiles().paths()) {
        report.ciFiles.emplace(fs::path(path).filename(), sizeOf(path));
    }
    report.ipServices = tv.serviceDb().ipServices().size();
    const TvClock clock = tv.clock();
    report.now = clock.time ? toUtc(*clock.time) : "";
    report.isClockStill = clock.isStill;
    report.zone = clock.zone;
    report.leftovers = leftoversOf(tv);
    return report;
}

}  // namespace sim
