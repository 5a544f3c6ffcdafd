// Between the paths of URLs and those of the volume. Nothing reaches the volume that did not come through here.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "common/Names.h"
#include "core/Volume.h"

namespace webdav {

// As the file system orders and compares names.
struct PathLess {
    bool operator()(const VolumePath& left, const VolumePath& right) const;
};
template <class Value>
using PathMap = std::map<VolumePath, Value, PathLess>;

// Is path folder itself or below it?
bool IsAtOrInside(const VolumePath& path, const VolumePath& folder);
// Where path goes when oldTop becomes newTop.
VolumePath Moved(const VolumePath& path, const VolumePath& oldTop, const VolumePath& newTop);

// "/Docs/a%20b.txt" or "http://host/Docs/a%20b.txt", whose host is then put into *authority. Throws HttpError 400 for what
// can name nothing here: "..", an encoded separator, a drive, a stream, a device, broken encoding, a fragment; 414 for
// what is too long.
VolumePath ParseTarget(std::string_view target, std::string* authority = nullptr);
// The other way, escaped for a URL; a folder's ends with '/'.
std::string Href(const VolumePath& path, bool isFolder);

// What a path names.
struct Resource {
    VolumePath path;                          // as the client knows it, in the spelling that is stored
    VolumePath key;                           // the same for all paths of one file, also through another mount folder; see Volume::Key
    std::optional<Entry> entry;               // what is there; its path is the one to give to the volume
    std::optional<DiskVersion> version = {};  // of an entry of a listing that had to look at it

    bool Exists() const { return entry.has_value(); }
    bool IsFolder() const { return entry && entry->IsFolder(); }
    bool IsTopLevel() const { return path.IsRoot() || path.IsMountFolder(); }
    std::string Url() const { return Href(path, IsFolder()); }
    // The path to give to the volume, for something that may be missing.
    const VolumePath& StoredPath() const { return entry ? entry->path : path; }
};

// Finds path, also by a short name, or when its accents are composed in the other way than stored. What a link leads to is
// not there.
Resource Locate(const Volume& volume, const VolumePath& path);
// The same, for an entry of a listing of folder.
Resource Listed(const Resource& folder, const Entry& entry);
// Do the names differ in letter case and the composition of accents alone?
bool AreSpellings(const std::wstring& left, const std::wstring& right);
// Which entries of a folder a client can ask for under their names, and will find then.
class ListedEntries {
public:
    ListedEntries(const Volume& volume, const Resource& folder);
    // version receives what the disk says of it, if it had to be looked at.
    bool Has(const Entry& entry, std::optional<DiskVersion>* version = nullptr) const;

private:
    bool IsHidden(const std::wstring& conflictName) const;

    const Volume& m_volume;
    const Resource& m_folder;
    mutable std::optional<std::set<std::wstring, decltype(&LessNoCase)>> m_hiding;  // names of files like those of conflict copies
    std::size_t m_mountPathSize = 0;                                                // units
    std::wstring m_onDisk;                                                          // where every entry has to be looked at; else empty
};

}  // namespace webdav
