#include "items/HeldSource.h"

#include "files/OpenFile.h"
#include "items/VirtualItem.h"
#include "library/Disk.h"
#include "library/Status.h"

HeldSource::~HeldSource() {
    const OnExit reopen([this] {
        m_hFile.Reset();
        if (m_isClosed && !m_isMoved)
            m_source.Reopen(false);
    });
}

VirtualVolumeStatus HeldSource::Hold(const std::wstring& path) {
    if (IsLink(path))  // what it leads to would be deleted at the end
        return VSS_NotImplemented;
    if (!m_source.IsAtItsPath())
        return VSS_SharingViolation;
    m_isClosed = true;
    m_source.CloseFile();
    constexpr DWORD access = GENERIC_READ | DELETE;
    m_isAlone = VirtualItem::CreateFileW(path, access, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, m_hFile) == VVS_Success;
    return m_isAlone ? VVS_Success
                     : VirtualItem::CreateFileInAMoment(path, access, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING,
                                                        FILE_ATTRIBUTE_NORMAL, m_hFile);
}

VirtualVolumeStatus HeldSource::MarkForDeletion() const { return StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), true)); }

void HeldSource::Moved() {
    m_isMoved = true;
    m_hFile.Reset();
}
