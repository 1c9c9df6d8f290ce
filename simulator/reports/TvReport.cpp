#include "simulator/reports/TvReport.h"

#include "simulator/base/Files.h"
#include "simulator/tv/Application.h"

namespace sim {

TvReport reportOn(const Tv& tv) {
    TvReport report;
    report.home = tv.home();
    report.counts = tv.serviceDb().counts();
    report.viewing = tv.viewing();
    report.watching = tv.serviceDb().find(report.viewing.serviceId);
    report.antenna = tv.antenna();
    report.isScanning = tv.isScanning();
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        report.favourites.push_back(tv.settings().favouriteName(list));
    }
    report.iss = tv.issDb().entries();
    for (const std::string& path : tv.ciModule().paths()) {
        report.ciFiles.emplace(std::filesystem::path(path).filename(), sizeOf(path));
    }
    report.ipServices = tv.serviceDb().ipServices().size();
    return report;
}

}  // namespace sim
