// Hands out the temp files into which encrypted items are decrypted, and keeps the decrypted copy of a closed item so that
// the next open need not decrypt again. Each temp file lies alone, under the item's own name, in a folder of its own
// below <user's temp folder>\HalvaneCloud. Process-wide; one critical section guards the retained copies, and no disk is
// touched while it is held. A copy is in the hands of one item at a time: Dispense takes it out, Retain puts it back.
#pragma once

#include <string>

#include "policy/FileUtils.h"
#include "quelcrypt/IVirtualVolume.h"

struct RetainedCopy {
    std::wstring tempFilePath;
    VirtFindData findData{};  // of the encrypted item when the copy was made or saved
    FileStamp container;      // likewise of its container on disk; of an unsaved edit, of the container it began from
    bool unsaved = false;     // an edit that could not be saved: never deleted here, and handed back whatever changed
};

class VirtualTempFileDispenser {
public:
    // Makes a folder of its own for a file of this name and stores the file's path; the file is not created.
    static bool CreateTempFileName(const std::wstring& fileName, std::wstring& tempFilePath);

    // When the content is wanted: the item's retained copy, if it is an unsaved edit, or agrees with the item's record and
    // its container (either may be null: then it does not); true. Otherwise a new path in copy.tempFilePath, empty when
    // none could be made; false.
    static bool Dispense(const std::wstring& filePathKey, bool contentWanted, const VirtFindData* findData,
                         const FileStamp* container, RetainedCopy& copy);

    // Keeps a closed item's copy, in place of an earlier one; but an unsaved edit gives way to another one only, and
    // then stays on disk with its tracking file. Beyond 522 copies the oldest leaves, with its folder;
    // unsaved edits neither count nor leave.
    static void Retain(const std::wstring& filePathKey, const RetainedCopy& copy);

    // Is an edit of the item waiting here for its next save?
    static bool HoldsUnsavedEdit(const std::wstring& filePathKey);

    // Forgets an item's copy and, when asked to, deletes its folder. An unsaved edit goes only when it is to be discarded,
    // because its document is deleted.
    static void Remove(const std::wstring& filePathKey, bool deleteFileFromDisk, bool discardUnsaved = false);

    // The copies of all that lies below a folder, after the folder was moved: they are its items' still.
    static void MoveFolder(const std::wstring& oldFolderPath, const std::wstring& newFolderPath);

    // Deletes the folder that a temp path lies in, with all it holds.
    static void DeleteTempFolder(const std::wstring& tempFilePath);
};
