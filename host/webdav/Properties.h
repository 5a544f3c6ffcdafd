// Properties of files and folders: those that the volume knows, and those that clients set ("dead" ones), which are kept
// until the program ends.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "webdav/LockTable.h"
#include "webdav/Paths.h"
#include "webdav/Xml.h"

namespace webdav {

// The whole elements of properties as text, by name.
using PropertyTexts = std::map<XmlName, std::string>;

class DeadProperties {
public:
    PropertyTexts Of(const VolumePath& path) const;
    // Sets those with a text and removes the others. Throws HttpError 507, and changes nothing, when there are too many.
    void Change(const VolumePath& path, const std::map<XmlName, std::optional<std::string>>& changes);
    // Throws HttpError 507 when a copy of the properties at and below from would be too many.
    void RequireRoomForCopy(const VolumePath& from) const;
    // Leaves out properties for which there is no room.
    void CopyTree(const VolumePath& from, const VolumePath& to);
    void MoveTree(const VolumePath& from, const VolumePath& to);
    void RemoveTree(const VolumePath& top);

private:
    void Store(const VolumePath& path, PropertyTexts texts);

    mutable std::mutex m_mutex;
    PathMap<PropertyTexts> m_properties;
    std::size_t m_bytes = 0;
};

// Numbers the changes that were made through this program, so that an entity tag changes with every one of them, even if time
// and size do not.
class ChangeNumbers {
public:
    // path and everything below it have changed.
    void Note(const VolumePath& path);
    // 0: not changed yet.
    std::uint64_t Of(const VolumePath& path) const;

private:
    mutable std::mutex m_mutex;
    std::uint64_t m_last = 0;
    std::uint64_t m_least = 0;  // the least number of any file, after others were forgotten
    std::size_t m_bytes = 0;
    PathMap<std::uint64_t> m_numbers;
};

// A strong entity tag with its quotation marks; empty for folders. The tag of unchanged content is the same after a restart, and is never
// used for other content.
std::string EntityTag(const Volume& volume, const ChangeNumbers& changes, const Resource& resource);
// By the name's extension; null when that is unknown.
const char* ContentType(std::wstring_view name);
std::string LockDiscoveryXml(const std::vector<DavLock>& locks);

}  // namespace webdav
