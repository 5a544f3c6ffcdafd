// The locks of a file. They belong to the process that took them: no other process sees them, but it cannot write the file
// while one is held, and so notices.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// A lock held as long as this object lives.
class HeldLock {
public:
    // An owner that is too long is cut. Throws StatusError.
    HeldLock(const Volume& volume, const VolumePath& path, LockScope scope, std::wstring_view owner);
    ~HeldLock();
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    std::wstring Token() const;

private:
    const Volume& m_volume;
    VolumePath m_path;
    LockInfo m_info{};
};

// The locks that this process holds on the file.
std::vector<LockInfo> LocksHeldHere(const Volume& volume, const VolumePath& path);
// Does another process hold the existing file? Takes a shared lock for a moment to find out.
bool IsHeldElsewhere(const Volume& volume, const VolumePath& path);
