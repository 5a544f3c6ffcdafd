// A plain file that is about to move away from where it is, held so that others can only read it: what they wrote after it was
// copied would never be saved, so who has it open for writing stops the move.
#pragma once

#include <memory>
#include <string>

#include <windows.h>

#include "items/PlainContent.h"
#include "library/Owners.h"

// The item's own handle, which may write, is closed while this lives, and opened again unless the item moved.
class HeldSource {
public:
    explicit HeldSource(PlainContent& source) : m_source(source), m_shared(source.Shared()) {}
    ~HeldSource();
    HeldSource(const HeldSource&) = delete;
    HeldSource& operator=(const HeldSource&) = delete;

    VirtualVolumeStatus Hold(const std::wstring& path);
    HANDLE File() const { return m_hFile.Get(); }
    // Has nobody renamed it away, or put another file in its place?
    bool IsAt(const std::wstring& path) const;
    VirtualVolumeStatus MarkForDeletion() const;
    // The item is elsewhere now; its old content may be gone.
    void Moved();

private:
    PlainContent& m_source;
    const std::shared_ptr<LockedContent> m_shared;
    UniqueHandle m_hFile;
    bool m_isMoved = false;
};
