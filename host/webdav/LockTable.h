// The locks that clients hold. A lock of a file is also one of the volume, so that the file is really held; a lock of a folder, also for
// the files in it, exists only here. All locks end with the program. Any thread may call.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "webdav/Paths.h"

namespace webdav {

struct DavLock {
    std::string token;  // "opaquelocktoken:..."
    VolumePath root;    // the client's path
    VolumePath key;     // of what is locked; all paths below are keys (see Resource)
    bool isFolder = false;
    bool infinite = false;  // also locks everything below root
    LockScope scope = LockScope_Exclusive;
    std::string ownerXml;  // the content of the client's owner element
    std::uint32_t timeoutSeconds = 0;
    std::chrono::steady_clock::time_point expires;  // does not depend on the time of day

    VolumePath storedPath;  // for the volume's lock; only of files
    std::wstring volumeToken;

    bool Covers(const VolumePath& path) const { return key.Equals(path) || (infinite && IsAtOrInside(path, key)); }
};

class LockTable {
public:
    explicit LockTable(const Volume& volume) : m_volume(volume) {}
    ~LockTable();
    LockTable(const LockTable&) = delete;
    LockTable& operator=(const LockTable&) = delete;

    // Takes the lock that wanted describes, and gives it its token and time of expiry. Throws HttpError 423 when another
    // lock or another program prevents it, 507 when there are too many. The file must exist.
    DavLock Add(DavLock wanted);
    // Renews the lock; nothing when there is none with this token that covers path.
    std::optional<DavLock> Refresh(const std::string& token, const VolumePath& path, std::uint32_t timeoutSeconds);
    // False: there is no lock with this token that covers path.
    bool Remove(const std::string& token, const VolumePath& path);
    // Ends expired locks, a little later than their holders were told.
    void RemoveExpired();

    std::vector<DavLock> Covering(const VolumePath& path) const;
    // A locked file under the path by which it was locked: the volume refuses to save it through another mount folder's path.
    Resource AsHeld(Resource resource) const;
    // The locks whose root is top or below it.
    std::vector<DavLock> Inside(const VolumePath& top) const;
    bool IsEmpty() const;

private:
    friend class SuspendedLocks;
    void RequireRoom(const DavLock& wanted) const;
    void Hold(DavLock& lock) const;
    void LetGo(const DavLock& lock) const;

    const Volume& m_volume;
    mutable std::mutex m_mutex;
    std::vector<DavLock> m_locks;
};

// Releases the locks at and below a path, because a locked file cannot be moved or deleted. When the operation succeeds they stay
// released (locks do not move with a resource), otherwise they are taken again. The caller has a claim on
// the tree, so nobody else sees it without its locks.
class SuspendedLocks {
public:
    SuspendedLocks(LockTable& table, const VolumePath& top);
    ~SuspendedLocks();
    SuspendedLocks(const SuspendedLocks&) = delete;
    SuspendedLocks& operator=(const SuspendedLocks&) = delete;
    // The operation succeeded.
    void Forget() { m_locks.clear(); }

private:
    LockTable& m_table;
    std::vector<DavLock> m_locks;
};

// A token must be submitted for the locks on path. Throws HttpError 423 naming what is locked.
void RequireTokens(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path);
// The locks at and below path for which no token was submitted.
std::vector<DavLock> ClosedLocksInside(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path);

}  // namespace webdav
