// The locks that clients hold. A file's lock is the volume's own, so that the file is really held against everybody; that
// of a folder, and of a file as part of a folder, lives here alone. All of it ends with the program. Any thread may call.
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
    VolumePath root;    // as the client knows it
    VolumePath key;     // of what is locked; paths that are asked about are keys (see Resource)
    bool isFolder = false;
    bool infinite = false;  // holds everything below root as well
    LockScope scope = LockScope_Exclusive;
    std::string ownerXml;  // what the client sent inside of its owner element
    std::uint32_t timeoutSeconds = 0;
    std::chrono::steady_clock::time_point expires;  // whatever becomes of the time of day

    VolumePath storedPath;  // for the volume's lock, of files only
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
    // lock or another program stands against it, 507 when too many are held. The file must exist.
    DavLock Add(DavLock wanted);
    // The lock with a new term from now on; nothing when there is none with this token that covers path.
    std::optional<DavLock> Refresh(const std::string& token, const VolumePath& path, std::uint32_t timeoutSeconds);
    // False: there is no lock with this token that covers path.
    bool Remove(const std::string& token, const VolumePath& path);
    // Ends the locks whose time is over, a little later than their holders were told.
    void RemoveExpired();

    std::vector<DavLock> Covering(const VolumePath& path) const;
    // A locked file by the path that it was locked by: through another mount folder's the volume would let nobody store it.
    Resource AsHeld(Resource resource) const;
    // Those whose root is top or below it.
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

// Lets go of the locks at and below a path, because a held file cannot be moved or deleted. They are gone for good when the
// operation succeeds (locks do not move with a resource) and are taken again when it does not. The caller has a claim on
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

// The submitted tokens must open what path is locked by. Throws HttpError 423 naming what is locked.
void RequireTokens(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path);
// The same for each lock at and below path: the roots of those that are not opened.
std::vector<DavLock> ClosedLocksInside(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path);

}  // namespace webdav
