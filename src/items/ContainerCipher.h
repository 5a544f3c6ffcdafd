// Moving content between a container and an open plain file, through the companion library's reader and writer. No state, any
// thread; nothing is locked here but the content of a locked container while it is copied. Whatever fails, the container that
// stood there stands. What the companion library throws becomes VSS_DecryptError or VSS_EncryptError.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <windows.h>

#include "library/FileVersion.h"
#include "locks/FileLocker.h"
#include "quelcrypt/IVirtualVolume.h"

namespace container_cipher {

// Writes the content of a container over the start of hDestFile. A container that is held under a lock is copied through the
// lock's handle first.
VirtualVolumeStatus DecryptToFile(const std::wstring& containerPath, const LockedFile& lock, const std::wstring& destFilePath,
                                  HANDLE hDestFile);

// A plain file to encrypt: its path, and a handle that reads it. The handle's position stays.
struct PlainSource {
    std::wstring path;
    HANDLE hFile;
};

// Encrypts into a container at zipFilePath, to be shown as virtualFileSpec. lastLook is called when the new container is complete,
// and has the last word: unless it answers VVS_Success, what is at zipFilePath stays, and its answer is returned.
using LastLook = std::function<VirtualVolumeStatus()>;
VirtualVolumeStatus EncryptOpenFileInternal(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                            const LastLook& lastLook);

// The look at what a container's saver or mover is about to replace. known is the version that it may replace.
// VVS_PathAlreadyExists: another one is there. VSS_SharingViolation: somebody is writing it at this moment.
VirtualVolumeStatus LookAtReplaced(const std::wstring& filePath, const std::optional<FileVersion>& known);

// The same into a container that a lock holds: the new one is built aside and copied in, and the lock's record follows it.
VirtualVolumeStatus EncryptOpenFileLocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                          const LockedFile& dest);

}  // namespace container_cipher
