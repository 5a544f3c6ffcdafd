// Statuses of the volume for errors of the platform. Any thread may call.
#pragma once

#include "library/Win32Error.h"
#include "quelcrypt/IVirtualVolume.h"

// The one place where platform errors become statuses. None, which a failed call may leave, is VVS_GeneralError.
VirtualVolumeStatus StatusFromWin32(Win32Error error);
// For a call that returned its error: None is VVS_Success.
inline VirtualVolumeStatus StatusOfCall(Win32Error error) { return error == Win32Error::None ? VVS_Success : StatusFromWin32(error); }
inline VirtualVolumeStatus StatusFromLastError() { return StatusFromWin32(LastWin32Error()); }
