// A plain file that is about to be moved, held so that others can only read it: what they write after it was copied would be lost.
// While somebody else has it open for writing, it cannot be moved.
#pragma once

#include <memory>
#include <string>

#include <windows.h>

#include "items/PlainContent.h"
#include "library/Owners.h"

// The item's own handle, which may write, is closed while this object exists, and opened again unless the item was moved.
class HeldSource {
public:
    explicit HeldSource(PlainContent& source) : m_source(source), m_shared(source.Shared()) {}
    ~HeldSource();
    HeldSource(const HeldSource&) = delete;
    HeldSource& operator=(const HeldSource&) = delete;

    VirtualVolumeStatus Hold(const std::wstring& path);
    HANDLE File() const { return m_hFile.Get(); }
    bool IsAlone() const { return m_isAlone; }  // nobody else who has it open may delete it
    VirtualVolumeStatus MarkForDeletion() const;
    // The item has its new path; its old file may be deleted.
    void Moved();

private:
    PlainContent& m_source;
    const std::shared_ptr<LockedContent> m_shared;
    UniqueHandle m_hFile;
    bool m_isClosed = false;  // the item's own handle
    bool m_isMoved = false;
    bool m_isAlone = false;
};
