#include "platform/Error.h"

#include <cerrno>

namespace platform {
namespace {
thread_local ErrorCode lastError = ERROR_SUCCESS;
}

ErrorCode GetLastError() {
    return lastError;
}

void SetLastError(ErrorCode code) {
    lastError = code;
}

ErrorCode ErrorFromErrno(int error) {
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
        case ELOOP:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
            return ERROR_ACCESS_DENIED;
        case EISDIR:
            return ERROR_DIRECTORY;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOSPC:
        case EDQUOT:
            return ERROR_DISK_FULL;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EBUSY:
        case ETXTBSY:
            return ERROR_BUSY;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case EFBIG:
            return ERROR_FILE_TOO_LARGE;
        case EIO:
            return ERROR_READ_FAULT;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace platform
