#include "platform/linux/errors.h"

#include <cerrno>

namespace platform {

Status statusOf(int systemError) {
    switch (systemError) {
        case 0:
            return noErr;
        case ENOENT:
        case ELOOP:
            return fnfErr;
        case ENOTDIR:
            return dirNFErr;
        case ENAMETOOLONG:
        case EILSEQ:
            return bdNamErr;
        case EEXIST:
            return dupFNErr;
        case EACCES:
        case EPERM:
            return permErr;
        case EROFS:
            return wPrErr;
        case EISDIR:
        case ENXIO:
        case ENODEV:
            return notAFileErr;
        case EBUSY:
        case ETXTBSY:
        case ENOTEMPTY:
        case EWOULDBLOCK:  // a lease that another process holds
            return fBsyErr;
        case EMFILE:
        case ENFILE:
            return tmfoErr;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return dskFulErr;
        case EMLINK:
            return dirFulErr;
        case ENOMEM:
            return memFullErr;
        case EBADF:
            return rfNumErr;
        case EINVAL:
        case ENOTSUP:
            return paramErr;
        default:
            return ioErr;
    }
}

}  // namespace platform
