// Moving content between a container and an open plain file, through the companion library's reader and writer. Stateless; any
// thread; the only lock taken is that of a locked container's content while it is copied. A failure leaves the old container as it
// was. Exceptions of the companion library become VSS_DecryptError or VSS_EncryptError.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <windows.h>

#include "library/FileVersion.h"
#include "locks/FileLocker.h"
#include "quelcrypt/IVirtualVolume.h"

namespace container_cipher {

// Writes the content of a container to the start of hDestFile. A locked container is first copied through the lock's handle.
VirtualVolumeStatus DecryptToFile(const std::wstring& containerPath, const LockedFile& lock, const std::wstring& destFilePath,
                                  HANDLE hDestFile);

// A plain file to encrypt: its path, and a handle that can read it, whose position is restored.
struct PlainSource {
    std::wstring path;
    HANDLE hFile;
};

// Encrypts into a container at zipFilePath, to be shown as virtualFileSpec. lastLook is called when the new container is complete:
// unless it returns VVS_Success, what is at zipFilePath stays, and its result is returned.
using LastLook = std::function<VirtualVolumeStatus()>;
VirtualVolumeStatus EncryptOpenFileInternal(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                            const LastLook& lastLook);

// Checks what a save or move is about to replace. known is the version that it may replace.
// VVS_PathAlreadyExists: another version is there. VSS_SharingViolation: somebody is writing the file at this moment.
VirtualVolumeStatus LookAtReplaced(const std::wstring& filePath, const std::optional<FileVersion>& known);

// Encrypts into a locked container: builds the new one in the temp folder, copies it over the old one, and updates the lock's record.
VirtualVolumeStatus EncryptOpenFileLocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                          const LockedFile& dest);

}  // namespace container_cipher
