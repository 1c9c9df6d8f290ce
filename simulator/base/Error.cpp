#include "simulator/base/Error.h"

#include <cerrno>

namespace sim {

Error::Kind kindOfErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return Error::Kind::Missing;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return Error::Kind::Full;
        case EBUSY:
        case EAGAIN:
            return Error::Kind::Locked;
        default:
            return Error::Kind::Unusable;
    }
}

}  // namespace sim
