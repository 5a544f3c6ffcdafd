// Properties of files and folders: those that the volume knows, and those that clients set ("dead" ones), which are kept
// as long as the program runs.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "webdav/Http.h"
#include "webdav/LockTable.h"
#include "webdav/Paths.h"
#include "webdav/Xml.h"

namespace webdav {

// A property's whole element as text, by name.
using PropertyTexts = std::map<XmlName, std::string>;

class DeadProperties {
public:
    PropertyTexts Of(const VolumePath& path) const;
    // Sets those with a text and removes the others. Throws HttpError 507, with nothing changed, when it gets too much.
    void Change(const VolumePath& path, const std::map<XmlName, std::optional<std::string>>& changes);
    // Throws HttpError 507 when a copy of those at and below from would get too much.
    void RequireRoomForCopy(const VolumePath& from) const;
    // What there is no room for has no copy.
    void CopyTree(const VolumePath& from, const VolumePath& to);
    void MoveTree(const VolumePath& from, const VolumePath& to);
    void RemoveTree(const VolumePath& top);

private:
    void Store(const VolumePath& path, PropertyTexts texts);

    mutable std::mutex m_mutex;
    PathMap<PropertyTexts> m_properties;
    std::size_t m_bytes = 0;
};

// Numbers the changes that were made through this program, so that an entity tag changes with every one of them, whatever
// times and sizes say.
class ChangeNumbers {
public:
    // path and all below it have changed.
    void Note(const VolumePath& path);
    // 0: not changed yet.
    std::uint64_t Of(const VolumePath& path) const;

private:
    mutable std::mutex m_mutex;
    std::uint64_t m_last = 0;
    std::uint64_t m_least = 0;  // of all files, since others were forgotten
    std::size_t m_bytes = 0;
    PathMap<std::uint64_t> m_numbers;
};

// A strong entity tag, quotation marks included; empty for folders. Those of one content stay over restarts, and come again for no other.
std::string EntityTag(const Volume& volume, const ChangeNumbers& changes, const Resource& resource);

constexpr std::uint64_t kUnixEpoch = 11'644'473'600;  // seconds after that of a FILETIME
constexpr std::uint64_t kLastUnixTime = 0xFFFFFFFF;   // seconds, in 2106
// Can a container keep the time? No file is given another one: it would become a third one when the file is encrypted.
constexpr bool IsKeptTime(std::uint64_t time) { return time / kSecond > kUnixEpoch && time / kSecond <= kUnixEpoch + kLastUnixTime; }

// By the name's extension; null when it tells nothing.
const char* ContentType(std::wstring_view name);
std::string LockDiscoveryXml(const std::vector<DavLock>& locks);

}  // namespace webdav
