// The locks of a file. They live in the process that took them: nobody else sees them, but while one is held the file
// cannot be written from outside, which is how another process notices.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// A lock held as long as this object lives.
class HeldLock {
public:
    // owner is cut to what a lock can hold. Throws StatusError.
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
// Does another process hold the existing file? Found out by taking a shared lock for a moment.
bool IsHeldElsewhere(const Volume& volume, const VolumePath& path);
