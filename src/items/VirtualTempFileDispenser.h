// Hands out the temp files into which encrypted items are decrypted, and keeps the decrypted copy of a closed item so that
// the next open need not decrypt again. Each temp file lies alone, under the item's own name, in a folder of its own
// below <user's temp folder>\HalvaneCloud. Process-wide; one critical section guards the retained copies, and no disk is
// touched while it is held. A copy is in the hands of one item at a time: Dispense takes it out, Retain puts it back.
#pragma once

#include <optional>
#include <string>

#include "library/FileVersion.h"
#include "quelcrypt/IVirtualVolume.h"

struct RetainedCopy {
    std::wstring tempFilePath;
    VirtFindData findData{};  // of the encrypted item when the copy was made or saved
    // The container when the copy was made or saved; of an unsaved edit, the one it began from. Nothing: there was none.
    std::optional<FileVersion> container;
    FileStamp temp;        // of the file itself, when it was kept
    bool unsaved = false;  // an edit that could not be saved: never deleted here
};

class VirtualTempFileDispenser {
public:
    // Makes a folder of its own for a file of this name and stores the file's path; the file is not created.
    static bool CreateTempFileName(const std::wstring& fileName, std::wstring& tempFilePath);

    // When the content is wanted: the item's retained copy, if it is of the version that is stored now (nothing: none is) and
    // either an unsaved edit or in agreement with the item's record (null: it is not); true. Otherwise a new path in
    // copy.tempFilePath, empty when none could be made; false.
    static bool Dispense(const std::wstring& filePathKey, bool contentWanted, const VirtFindData* findData,
                         const std::optional<FileVersion>& container, RetainedCopy& copy);

    // Keeps a closed item's copy, in place of an earlier one; but an unsaved edit gives way to another one only, and
    // then stays on disk with its tracking file. Beyond 522 copies the oldest leaves, with its folder;
    // unsaved edits neither count nor leave.
    static void Retain(const std::wstring& filePathKey, const RetainedCopy& copy);

    // Is an edit of the item, or of any item below a folder, waiting here for its next save?
    static bool HoldsUnsavedEdit(const std::wstring& filePathKey);
    static bool HoldsUnsavedEditBelow(const std::wstring& folderPath);
    // Takes out an edit that waits for a container that somebody else replaced since; false when there is none.
    static bool TakeOvertakenEdit(const std::wstring& filePathKey, const std::optional<FileVersion>& container, RetainedCopy& copy);

    // An edit that waits for the version that is stored now, and so is what the document shows.
    static std::optional<RetainedCopy> ShownEdit(const std::wstring& filePathKey, const std::optional<FileVersion>& container);

    // Forgets an item's copy and, when asked to, deletes its folder. An unsaved edit is only deleted when it is
    // this one, which its document was deleted with, and was not written since.
    static void Remove(const std::wstring& filePathKey, bool deleteFileFromDisk, const std::optional<RetainedCopy>& deletedEdit = {});

    // The copies of all that lies below a folder, after the folder was moved: they are its items' still. The tracking files of
    // unsaved edits then name the new containers.
    static void MoveFolder(const std::wstring& oldFolderPath, const std::wstring& newFolderPath);

    // Deletes the folder that a temp path lies in, with all it holds. The folder of a file that others have open stays until they are
    // done and the next temp file is made.
    static void DeleteTempFolder(const std::wstring& tempFilePath);
};
