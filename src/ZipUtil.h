// Zip archives: a folder into an archive, and an archive into a folder.
#pragma once

#include <string>

class CZipUtil {
public:
    CZipUtil();
    virtual ~CZipUtil();

    // Packs every regular file below `sourceFolder` into a new archive at `zipPath`, then removes the folder. The
    // entries are named after the files' paths less the text `sourceFolder`: give it with its trailing '/'. Entries
    // are deflated and carry no time stamp; folders get none.
    // False: the archive could not be opened (nothing has changed), or not be written (both the archive and the folder
    // are gone). A failing folder iteration leaves as a std::filesystem::filesystem_error.
    bool CreateZipFile(const std::string& sourceFolder, const std::string& zipPath);

    // Unpacks every entry into `destinationFolder`, over files that are there. Entry names are taken as they stand: a
    // leading '/' or a ".." leads out of the folder. Stops at the first error, and what was written until then stays.
    // True when every entry was extracted and the archive closed without error.
    bool UnzipFile(const std::string& zipPath, const std::string& destinationFolder);

private:
    // Writes the files below `folder` into the open archive. `baseFolder` is what their names are relative to.
    bool m_CreateZipFile(const std::string& folder, void*& zipHandle, const std::string& baseFolder);
};
