// A Win32 error code as a type of its own, so that it is never taken for a VirtualVolumeStatus.
#pragma once

#include <windows.h>

enum class Win32Error : DWORD { None = 0 };

// The calling thread's last error; to be captured right after the failed call.
inline Win32Error LastWin32Error() { return static_cast<Win32Error>(GetLastError()); }
