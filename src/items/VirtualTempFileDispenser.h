// Makes the temp files into which encrypted items are decrypted, and keeps the retained copies and unsaved edits of closed items for
// the next open. Each temp file has the item's name and a folder of its own
// below <user's temp folder>\HalvaneCloud. Process-wide; one critical section guards the retained copies, and no disk is
// accessed while it is held. One item at a time has a copy: Dispense takes it out, Retain puts it back.
#pragma once

#include <optional>
#include <string>

#include "library/FileVersion.h"
#include "quelcrypt/IVirtualVolume.h"

struct RetainedCopy {
    std::wstring tempFilePath;
    VirtFindData findData{};  // of the encrypted item when the copy was made or saved
    // The container's version when the copy was made or saved; of an unsaved edit, its base. Nothing: there was no container.
    std::optional<FileVersion> container;
    FileStamp temp;        // of the temp file itself, when it was retained
    bool unsaved = false;  // an edit that could not be saved: never deleted by this class
};

class VirtualTempFileDispenser {
public:
    // Makes a folder of its own for a file of this name and stores the file's path; the file is not created.
    static bool CreateTempFileName(const std::wstring& fileName, std::wstring& tempFilePath);

    // True: copy is the item's retained copy. It is if contentWanted, it is of the version stored now (container; nothing: none is
    // stored), and it is an unsaved edit or agrees with findData (null: it does not). False:
    // copy.tempFilePath is a new path, empty when none could be made.
    static bool Dispense(const std::wstring& filePathKey, bool contentWanted, const VirtFindData* findData,
                         const std::optional<FileVersion>& container, RetainedCopy& copy);

    // Keeps a closed item's copy instead of an earlier one. An unsaved edit is replaced only by another unsaved edit, and
    // then stays on disk with its tracking file. Beyond 522 copies the oldest is deleted with its folder;
    // unsaved edits are neither counted nor deleted.
    static void Retain(const std::wstring& filePathKey, const RetainedCopy& copy);

    // Does an edit of the item wait for its next save? Or one of any item below a folder, even if an open item has it now?
    static bool HoldsUnsavedEdit(const std::wstring& filePathKey);
    static bool HoldsUnsavedEditBelow(const std::wstring& folderPath);
    // Takes out an unsaved edit whose container somebody else replaced since; false when there is none.
    static bool TakeOvertakenEdit(const std::wstring& filePathKey, const std::optional<FileVersion>& container, RetainedCopy& copy);

    // The unsaved edit of the version that is stored now, which is what an open shows.
    static std::optional<RetainedCopy> ShownEdit(const std::wstring& filePathKey, const std::optional<FileVersion>& container);

    // While an edit waits, an encrypted item's record in this folder gets the size and write time of what an open shows.
    static void DescribeShownEdit(const std::wstring& folderPath, VirtFindData& record);

    // Forgets an item's copy and, if asked to, deletes its folder. An unsaved edit is deleted only if it is deletedEdit, the one
    // that was shown when its document was deleted, and was not written since.
    static void Remove(const std::wstring& filePathKey, bool deleteFileFromDisk, const std::optional<RetainedCopy>& deletedEdit = {});

    // After a folder was moved: the copies of everything below it belong to the new paths, and the tracking files of
    // unsaved edits name the new containers.
    static void MoveFolder(const std::wstring& oldFolderPath, const std::wstring& newFolderPath);

    // Deletes the folder of a temp file with everything in it. If others have the file open, the folder is deleted when a later temp file
    // is made and they have closed it.
    static void DeleteTempFolder(const std::wstring& tempFilePath);
};
