// CI service: the Common Interface module and the files it keeps.
#pragma once

#include <list>
#include <string>

namespace CIM {

class ICIGeneral {
public:
    // Appends the absolute paths of the files to save to `paths`. Exactly 1 is success; on any other
    // result the content of `paths` means nothing.
    virtual int GetBackupFilePaths(std::list<std::string>& paths) = 0;

    // Hands over restored files by path. The service takes them over, all or none, before it returns.
    // Exactly 1 is success.
    virtual int BackupFileDone(std::list<std::string>& paths) = 0;

protected:
    ~ICIGeneral() = default;
};

class TCCIService {
public:
    // The service's general interface, which stays the service's own; null when there is no CI service.
    static ICIGeneral* CIGeneralInstance();
};

}  // namespace CIM
