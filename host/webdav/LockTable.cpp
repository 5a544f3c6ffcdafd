#include "webdav/LockTable.h"

#include <algorithm>
#include <cwchar>

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::uint32_t kLongestGrace = 120;  // seconds

// A little later than the client was told, so that it can refresh the lock at the last moment over a slow connection.
Clock::time_point ExpiryOf(const DavLock& lock) {
    return lock.expires + std::chrono::seconds(std::min(lock.timeoutSeconds / 10 + 1, kLongestGrace));
}

// Converts a token of the volume, "{0F8FAD5B-...}".
std::string TokenOf(std::wstring_view guid) {
    std::string token = ToUtf8(guid.substr(1, guid.size() - 2));
    std::transform(token.begin(), token.end(), token.begin(),
                   [](char unit) { return unit >= 'A' && unit <= 'F' ? char(unit + 32) : unit; });
    return "opaquelocktoken:" + token;
}

std::string NewToken() {
    std::wstring guid = UniqueSuffix() + UniqueSuffix() + UniqueSuffix() + UniqueSuffix();
    for (const std::size_t dash : {8, 13, 18, 23})
        guid.insert(dash, 1, L'-');
    return TokenOf(L"{" + guid + L"}");
}

bool InConflict(const DavLock& left, const DavLock& right) {
    return (left.scope == LockScope_Exclusive || right.scope == LockScope_Exclusive) && (left.Covers(right.key) || right.Covers(left.key));
}

bool Opens(const std::vector<std::string>& submitted, const DavLock& lock) {
    return std::find(submitted.begin(), submitted.end(), lock.token) != submitted.end();
}

std::size_t SizeOf(const DavLock& lock) {
    const auto pathBytes = [](const VolumePath& path) { return std::wcslen(path.Str()) * sizeof(wchar_t); };
    return lock.ownerXml.size() + pathBytes(lock.root) + pathBytes(lock.key) + pathBytes(lock.storedPath);
}

}  // namespace

LockTable::~LockTable() {
    for (const DavLock& lock : m_locks)
        LetGo(lock);
}

void LockTable::Hold(DavLock& lock) const {
    if (lock.isFolder)
        return;
    LockInfo info{};
    info.scope = lock.scope;
    info.type = LockType_Write;
    info.timeout = lock.timeoutSeconds;
    m_volume.Lock(lock.storedPath, info);
    lock.volumeToken = BoundedText(info.token);
}

void LockTable::LetGo(const DavLock& lock) const {
    if (!lock.isFolder)
        m_volume->Unlock(lock.storedPath.Str(), lock.volumeToken.c_str());
}

void LockTable::RequireRoom(const DavLock& wanted) const {
    std::size_t bytes = SizeOf(wanted);
    for (const DavLock& lock : m_locks)
        bytes += SizeOf(lock);
    // Locks of folders above count too, so that every entry of a listing has only few.
    const auto covering = [this](const VolumePath& key) {
        return std::count_if(m_locks.begin(), m_locks.end(), [&key](const DavLock& lock) { return lock.Covers(key); });
    };
    auto most = covering(wanted.key);
    for (const DavLock& lock : m_locks)
        if (wanted.infinite && lock.key.IsInside(wanted.key))
            most = std::max(most, covering(lock.key));
    if (m_locks.size() >= limits::locks || static_cast<std::size_t>(most) >= limits::locksOfOneFile || bytes > limits::lockBytes)
        throw HttpError(507, "too many locks are held already");
}

DavLock LockTable::Add(DavLock wanted) {
    const std::lock_guard guard(m_mutex);
    RequireRoom(wanted);
    for (const DavLock& lock : m_locks)
        if (InConflict(lock, wanted))
            throw HttpError(423, "another lock conflicts with it",
                            "<D:no-conflicting-lock><D:href>" + Href(lock.root, lock.isFolder) + "</D:href></D:no-conflicting-lock>");
    Hold(wanted);
    wanted.token = wanted.isFolder ? NewToken() : TokenOf(wanted.volumeToken);
    wanted.expires = Clock::now() + std::chrono::seconds(wanted.timeoutSeconds);
    m_locks.push_back(wanted);
    return wanted;
}

std::optional<DavLock> LockTable::Refresh(const std::string& token, const VolumePath& path, std::uint32_t timeoutSeconds) {
    const std::lock_guard guard(m_mutex);
    for (DavLock& lock : m_locks) {
        if (lock.token != token || !lock.Covers(path))
            continue;
        lock.timeoutSeconds = timeoutSeconds;
        lock.expires = Clock::now() + std::chrono::seconds(timeoutSeconds);
        return lock;
    }
    return std::nullopt;
}

bool LockTable::Remove(const std::string& token, const VolumePath& path) {
    const std::lock_guard guard(m_mutex);
    const auto found =
        std::find_if(m_locks.begin(), m_locks.end(), [&](const DavLock& lock) { return lock.token == token && lock.Covers(path); });
    if (found == m_locks.end())
        return false;
    LetGo(*found);
    m_locks.erase(found);
    return true;
}

void LockTable::RemoveExpired() {
    const std::unique_lock guard(m_mutex, std::try_to_lock);
    if (!guard)
        return;  // another thread may have it for long, and the server must still notice Ctrl-C
    std::erase_if(m_locks, [this, now = Clock::now()](const DavLock& lock) {
        if (ExpiryOf(lock) > now)
            return false;
        LetGo(lock);
        return true;
    });
}

std::vector<DavLock> LockTable::Covering(const VolumePath& path) const {
    const std::lock_guard guard(m_mutex);
    std::vector<DavLock> found;
    std::copy_if(m_locks.begin(), m_locks.end(), std::back_inserter(found), [&](const DavLock& lock) { return lock.Covers(path); });
    return found;
}

Resource LockTable::AsHeld(Resource resource) const {
    if (!resource.Exists() || resource.IsFolder())
        return resource;
    const std::lock_guard guard(m_mutex);
    // On some disks a name in another letter case is another file's.
    const auto isHeld = [&](const DavLock& lock) { return !lock.isFolder && std::wcscmp(lock.key.Str(), resource.key.Str()) == 0; };
    const auto found = std::find_if(m_locks.begin(), m_locks.end(), isHeld);
    if (found != m_locks.end())
        resource.entry->path = found->storedPath;
    return resource;
}

std::vector<DavLock> LockTable::Inside(const VolumePath& top) const {
    const std::lock_guard guard(m_mutex);
    std::vector<DavLock> found;
    std::copy_if(m_locks.begin(), m_locks.end(), std::back_inserter(found),
                 [&](const DavLock& lock) { return IsAtOrInside(lock.key, top); });
    return found;
}

bool LockTable::IsEmpty() const {
    const std::lock_guard guard(m_mutex);
    return m_locks.empty();
}

SuspendedLocks::SuspendedLocks(LockTable& table, const VolumePath& top) : m_table(table), m_locks(table.Inside(top)) {
    const std::lock_guard guard(m_table.m_mutex);
    std::erase_if(m_table.m_locks, [&](const DavLock& lock) { return IsAtOrInside(lock.key, top); });
    for (const DavLock& lock : m_locks)
        m_table.LetGo(lock);
}

SuspendedLocks::~SuspendedLocks() {
    const std::lock_guard guard(m_table.m_mutex);
    for (DavLock& lock : m_locks) {
        VirtFindData data{};
        if (!lock.isFolder && !m_table.m_volume->FindFile(lock.storedPath.Str(), &data))
            continue;  // a part of the operation was done; locking would create the file again
        try {
            m_table.Hold(lock);
            m_table.m_locks.push_back(lock);
        } catch (const std::exception& error) {
            PrintError("quelvol: a lock could not be taken again: " + std::string(error.what()) + "\n");
        }
    }
}

void RequireTokens(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path) {
    const std::vector<DavLock> locks = table.Covering(path);
    if (locks.empty() || std::any_of(locks.begin(), locks.end(), [&](const DavLock& lock) { return Opens(submitted, lock); }))
        return;
    throw HttpError(423, "it is locked",
                    "<D:lock-token-submitted><D:href>" + Href(locks[0].root, locks[0].isFolder) + "</D:href></D:lock-token-submitted>");
}

std::vector<DavLock> ClosedLocksInside(const LockTable& table, const std::vector<std::string>& submitted, const VolumePath& path) {
    const std::vector<DavLock> locks = table.Inside(path);
    std::vector<DavLock> closed;
    for (const DavLock& lock : locks) {
        const bool opened = std::any_of(locks.begin(), locks.end(),
                                        [&](const DavLock& other) { return other.key.Equals(lock.key) && Opens(submitted, other); });
        if (!opened)
            closed.push_back(lock);
    }
    return closed;
}

}  // namespace webdav
