#include "platform/ci_service.h"

#include "simulator/client/Connection.h"

namespace {

using client::call;
using wire::CallId;

class CiGeneral final : public CIM::ICIGeneral {
public:
    int GetBackupFilePaths(std::list<std::string>& paths) override {
        auto answer = call<CallId::get_backup_file_paths>({});
        if (answer.out) {
            paths.splice(paths.end(), *answer.out);
        }
        return answer.result;
    }

    int BackupFileDone(std::list<std::string>& paths) override {
        return call<CallId::backup_file_done>({paths}).result;
    }
};

}  // namespace

CIM::ICIGeneral* CIM::TCCIService::CIGeneralInstance() {
    static CiGeneral general;
    return call<CallId::ci_general_instance>({}).result.isThere ? &general : nullptr;
}
