// Moving content between open files and paths, with the traces that the volume's file operations share. On failure each
// function logs the reason and leaves the last error set.
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

// Copies all of one open file over the start of another, which is not cut; both keep their positions.
bool CopyFileW(HANDLE hFileSrc, HANDLE hFileDest);

// Makes the content of hFileSrc the content of a locked file, and takes back a pending deletion. The part beyond the old content is
// written first: if there is no space for it, the old content is still there, with its write time. hFileAside, an empty file or null,
// receives a copy of the old content before, which is copied back when a later step fails. On failure *isTorn says whether the old
// content is lost nevertheless.
bool CopyIntoLockedFile(HANDLE hFileSrc, const LockedFile& dest, HANDLE hFileAside, bool* isTorn);

// Copies content and times of an open file into a new file, and flushes it to the disk. After a failure the caller deletes the new
// file.
VirtualVolumeStatus CopyToNewFile(HANDLE hSource, const std::wstring& path);

// flags are those of MoveFileEx; with 0 it replaces nothing, and never copies to another disk.
Win32Error MoveFileW(const std::wstring& srcFilePath, const std::wstring& destFilePath, DWORD flags);

}  // namespace file_content
