// The temp file of an open encrypted file, and what would be lost if it were deleted. Only Edited and Waiting hold an
// edit, and only a save, a backup, or the deletion of the document leads out of them. A close in these states gives the copy to the
// dispenser, which never deletes it, and its tracking file stays beside it. Belongs to one item's content.
#pragma once

#include <string>

#include "items/VirtualTempFileDispenser.h"
#include "library/Owners.h"

class WorkingCopy {
public:
    enum class State {
        NotMade,     // there is no copy yet
        Unneeded,    // need not be kept: started empty, partly written, or saved to a container that cannot be read back
        Containers,  // equals the container: may be kept for the next open
        Edited,      // an edit that is not in a container yet
        Waiting,     // an edit of an earlier item, whose save failed
    };

    State Get() const { return m_state; }
    bool IsMade() const { return m_state != State::NotMade; }
    bool HoldsEdit() const { return m_state == State::Edited || m_state == State::Waiting; }
    HANDLE File() const { return m_hFile.Get(); }
    const std::wstring& Path() const { return m_copy.tempFilePath; }  // empty until it is made

    // NotMade -> Waiting for a retained edit, Containers for what was decrypted or retained, Unneeded for an empty start.
    void Make(RetainedCopy copy, UniqueHandle hFile, bool isOfContainer);
    // Before a write, which may fail half-way: Containers -> Unneeded.
    void WillBeWritten();
    // Any but NotMade -> Edited.
    void WasWritten();
    // Any but NotMade -> Containers when the container was read back and agrees, with its record; otherwise -> Unneeded.
    void WasSaved(const VirtFindData* readBack);
    // Edited, Waiting -> Unneeded: the user has a backup.
    void WasBackedUp();
    // -> NotMade. Deletes the copy in any state: the document was deleted, or was just stored elsewhere.
    void Discard();
    // -> NotMade at the close: an edit waits for the next save, a copy that equals the container is retained, any other is deleted.
    void GiveBack(const std::wstring& itemPath, const std::optional<FileVersion>& container);

    // Called before the content is stored with its time. Gives the file the time of its last write, unless another time was set
    // explicitly since: of a file that is open for writing, the platform may report an earlier one ("WriteFile", Remarks).
    void SettleTime();
    // Attributes or times were set explicitly, and are stored only with an edit: Containers -> Unneeded.
    void InfoWasSet(bool withWriteTime);

private:
    RetainedCopy m_copy;
    UniqueHandle m_hFile;
    State m_state = State::NotMade;
    FILETIME m_writeTime{};  // of the last write through this copy; 0: none, or a time was set explicitly since
};
