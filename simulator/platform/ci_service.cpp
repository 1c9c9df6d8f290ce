#include "platform/ci_service.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/platform/Device.h"

namespace {

class CiGeneral final : public CIM::ICIGeneral {
public:
    int GetBackupFilePaths(std::list<std::string>& paths) override {
        return sim::platformCall(
            "CIM::ICIGeneral::GetBackupFilePaths", "",
            [&](sim::Given& given) {
                paths.splice(paths.end(), sim::Device::current().tv.ciModule().paths());
                given.text = fmt::format("{}", fmt::join(paths, ", "));
                return 1;
            },
            // The module names a file that is not there, after those that are.
            [&](const std::string&) { paths.push_back(sim::Device::current().tv.home() / "ci/missing.bin"); });
    }

    int BackupFileDone(std::list<std::string>& paths) override {
        return sim::platformCall("CIM::ICIGeneral::BackupFileDone", fmt::format("{}", fmt::join(paths, ", ")),
                                 [&] { return sim::Device::current().tv.ciModule().takeOver(paths) ? 1 : 0; });
    }
};

}  // namespace

CIM::ICIGeneral* CIM::TCCIService::CIGeneralInstance() {
    static CiGeneral general;
    return sim::platformCall("CIM::TCCIService::CIGeneralInstance", "", []() -> CIM::ICIGeneral* { return &general; });
}
