// Moving content between open files and paths, with the traces that the volume's file operations share. On failure each
// has logged why and left the last error set.
#pragma once

#include <cstdint>
#include <string>

#include <windows.h>

#include "library/Win32Error.h"
#include "locks/FileLocker.h"

namespace file_content {

inline constexpr std::uint32_t kChunkBytes = 32768;

// One read of kChunkBytes, or one write, at the handle's position. filePath is for messages.
bool ReadFile(const std::wstring& filePath, HANDLE hFile, void* buffer, DWORD* bytesRead);
bool WriteFile(const std::wstring& filePath, HANDLE hFile, const void* data, DWORD numOfBytesToWrite, DWORD* bytesWritten);

// Copies the whole of one open file over another, from the start; neither is cut, and both keep their positions.
bool CopyFileW(HANDLE hFileSrc, HANDLE hFileDest);

// Makes the whole of hFileSrc the content of a locked file; a pending deletion is taken back. What could fail for want of space
// is written behind the old content first, so that it still stands then, with its write time. hFileAside, an empty file or null,
// takes a copy of the old content before, which is put back when a later step fails. On failure *isTorn says whether the old
// content is gone all the same.
bool CopyIntoLockedFile(HANDLE hFileSrc, const LockedFile& dest, HANDLE hFileAside, bool* isTorn);

// Copies content and times of an open file into a new file, and waits until they are on the disk. What a failure leaves of the new
// file is the caller's to remove.
VirtualVolumeStatus CopyToNewFile(HANDLE hSource, const std::wstring& path);

// flags are MoveFileEx's; 0 neither replaces nor leaves the disk.
Win32Error MoveFileW(const std::wstring& srcFilePath, const std::wstring& destFilePath, DWORD flags);

}  // namespace file_content
