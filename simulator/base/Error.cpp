#include "simulator/base/Error.h"

#include <cerrno>
#include <cstring>

namespace sim {

Error Error::ofSystem(const std::filesystem::path& path, std::string_view what, int number) {
    return {kindOfErrno(number), path.string() + ": " + std::string(what) + ": " + std::strerror(number)};
}

Error::Kind kindOfErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return Error::Kind::Missing;
        case ENOSPC:
        case EDQUOT:
        // A limit on the size of files (ulimit -f): it is met like a full disk.
        case EFBIG:
            return Error::Kind::Full;
        default:
            return Error::Kind::Unusable;
    }
}

}  // namespace sim
