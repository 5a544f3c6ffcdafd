#include "library/Status.h"

VirtualVolumeStatus StatusFromWin32(Win32Error error) {
    switch (static_cast<DWORD>(error)) {
        case ERROR_FILE_NOT_FOUND: return VVS_FileNotFound;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_BAD_PATHNAME: return VVS_PathNotFound;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT: return VVS_AccessDenied;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY: return VSS_OutMemory;
        case ERROR_SHARING_VIOLATION: return VSS_SharingViolation;
        case ERROR_LOCK_VIOLATION: return VSS_LockViolation;
        case ERROR_NOT_SUPPORTED:
        case ERROR_CALL_NOT_IMPLEMENTED: return VSS_NotImplemented;
        case ERROR_FILE_EXISTS: return VSS_FileExists;
        case ERROR_INVALID_PARAMETER:
        case ERROR_INVALID_NAME: return VVS_InvalidParameter;
        case ERROR_ALREADY_EXISTS: return VVS_PathAlreadyExists;
        default: return VVS_GeneralError;
    }
}
