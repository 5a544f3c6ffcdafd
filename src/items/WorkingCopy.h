// The decrypted copy in which an open encrypted file is read and written, and what would be lost with it. Who asks whether an
// edit can be lost finds the answer here: only Edited and Waiting hold one, and the only ways out of them are a save, a backup,
// and the deletion of the document; a close in these states hands the copy to the dispenser, which never deletes it, and its
// tracking file stays beside it. Belongs to one item's content.
#pragma once

#include <string>

#include "items/VirtualTempFileDispenser.h"
#include "library/Owners.h"

class WorkingCopy {
public:
    enum class State {
        NotMade,     // there is no copy yet
        Unneeded,    // nothing that must be kept: begun empty, written in part, or saved where it cannot be read back
        Containers,  // what the container holds: may be kept for the next open
        Edited,      // an edit that is in no container yet
        Waiting,     // an edit of an earlier item, whose save failed
    };

    State Get() const { return m_state; }
    bool IsMade() const { return m_state != State::NotMade; }
    bool HoldsEdit() const { return m_state == State::Edited || m_state == State::Waiting; }
    HANDLE File() const { return m_hFile.Get(); }
    const std::wstring& Path() const { return m_copy.tempFilePath; }  // empty until it is made

    // NotMade -> Waiting for a retained edit, Containers for what was decrypted or retained, Unneeded for an empty start.
    void Make(RetainedCopy copy, UniqueHandle hFile, bool isOfContainer);
    // Before a write, which may be done in part only: Containers -> Unneeded.
    void WillBeWritten();
    // Any but NotMade -> Edited.
    void WasWritten();
    // Any but NotMade -> Containers when the container was read back and agrees, with its record; otherwise -> Unneeded.
    void WasSaved(const VirtFindData* readBack);
    // Edited, Waiting -> Unneeded: the user has a backup.
    void WasBackedUp();
    // -> NotMade. The copy is deleted, whatever it holds: the document was deleted, or was just stored elsewhere.
    void Discard();
    // -> NotMade at the close: an edit waits for the next save, what the container holds is kept, anything else is deleted.
    void GiveBack(const std::wstring& itemPath, const std::optional<FileVersion>& container);

    // Gives the file the time of its last write, unless another one was set by hand since: of a file that is still open for
    // writing, the platform may report an earlier one ("WriteFile", Remarks). For who stores the content with its time.
    void SettleTime();
    // Attributes or times were set by hand, which are the container's only with an edit: Containers -> Unneeded.
    void InfoWasSet(bool withWriteTime);

private:
    RetainedCopy m_copy;
    UniqueHandle m_hFile;
    State m_state = State::NotMade;
    FILETIME m_writeTime{};  // of the last write through this copy; 0: none, or set by hand since
};
