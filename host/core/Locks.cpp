#include "core/Locks.h"

#include "core/HostError.h"
#include "core/Text.h"

HeldLock::HeldLock(const Volume& volume, const VolumePath& path, LockScope scope, std::wstring_view owner)
    : m_volume(volume), m_path(path) {
    m_info.scope = scope;
    m_info.type = LockType_Write;
    owner.substr(0, std::size(m_info.owner) - 1).copy(m_info.owner, std::size(m_info.owner) - 1);
    volume.Lock(path, m_info);
}

HeldLock::~HeldLock() {
    m_volume->Unlock(m_path.Str(), m_info.token);  // fails if 'unlock' was used before
}

std::wstring HeldLock::Token() const { return std::wstring(BoundedText(m_info.token)); }

std::vector<LockInfo> LocksHeldHere(const Volume& volume, const VolumePath& path) {
    std::vector<LockInfo> locks;
    LockInfo info{};
    const FindHandle search(volume.Get(), volume->FindFirstLock(path.Str(), &info));
    for (bool found = static_cast<bool>(search); found; found = volume->FindNextLock(search.Get(), &info) == VVS_Success)
        locks.push_back(info);
    return locks;
}

bool IsHeldElsewhere(const Volume& volume, const VolumePath& path) {
    try {
        const HeldLock probe(volume, path, LockScope_Shared, L"");
        return false;
    } catch (const StatusError& error) {
        if (error.Status() == VVS_Locked)
            return true;
        throw;
    }
}
