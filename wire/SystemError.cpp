#include "wire/SystemError.h"

#include <cerrno>

namespace wire {

uint32_t SystemErrorOf(int i_lErrno)
{
    switch (i_lErrno) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return 2; // file not found
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
        return 3; // path not found
    case EMFILE:
    case ENFILE:
        return 4; // too many open files
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
        return 5; // access denied
    case ENOMEM:
        return 8; // not enough memory
    case EINVAL:
    case ENOTTY:
        return 87; // invalid parameter
    case EBUSY:
    case EWOULDBLOCK:
        return 170; // busy
    case ENOEXEC:
        return 193; // bad executable format
    default:
        return 31; // general failure
    }
}

} // namespace wire
