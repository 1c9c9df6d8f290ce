#include "platform/ci_service.h"

#include "simulator/device/Journal.h"

namespace {

class CiGeneral final : public CIM::ICIGeneral {
public:
    int GetBackupFilePaths(std::list<std::string>& paths) override {
        return sim::platformCall(
            sim::calls::get_backup_file_paths, std::tuple(),
            [&](sim::Device& device, sim::Given& given) {
                paths.splice(paths.end(), device.tv.ciFiles().paths());
                given = sim::toJournal(paths);
                return 1;
            },
            // The module also names a file that does not exist.
            [&](sim::Damage) { paths.push_back(sim::Device::current().tv.home() / "ci/missing.bin"); });
    }

    int BackupFileDone(std::list<std::string>& paths) override {
        return sim::platformCall(sim::calls::backup_file_done, std::tuple(paths),
                                 [&](sim::Device& device) { return device.tv.ciFiles().takeOver(paths) ? 1 : 0; });
    }
};

}  // namespace

CIM::ICIGeneral* CIM::TCCIService::CIGeneralInstance() {
    static CiGeneral general;
    return sim::platformCall(sim::calls::ci_general_instance, std::tuple(),
                             []() -> CIM::ICIGeneral* { return &general; });
}
