// Converts between the paths of URLs and those of the volume. Every path for the volume is made here.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "common/Names.h"
#include "core/Volume.h"

namespace webdav {

// Compares paths like the file system.
struct PathLess {
    bool operator()(const VolumePath& left, const VolumePath& right) const;
};
template <class Value>
using PathMap = std::map<VolumePath, Value, PathLess>;

// Is path folder itself or below it?
bool IsAtOrInside(const VolumePath& path, const VolumePath& folder);
// The new path of path when oldTop becomes newTop.
VolumePath Moved(const VolumePath& path, const VolumePath& oldTop, const VolumePath& newTop);

// target is "/Docs/a%20b.txt" or "http://host/Docs/a%20b.txt", whose host is then put into *authority. Throws HttpError 400 for a path
// that is never valid here: "..", an encoded separator, a drive, a stream, a device, broken encoding, a fragment; 414 for
// one that is too long.
VolumePath ParseTarget(std::string_view target, std::string* authority = nullptr);
// The URL path, escaped; that of a folder ends with '/'.
std::string Href(const VolumePath& path, bool isFolder);

// What a path names.
struct Resource {
    VolumePath path;                          // the client's path, in the stored spelling
    VolumePath key;                           // the same for all paths of one file, also through another mount folder; see Volume::Key
    std::optional<Entry> entry;               // what is there; its path is the one for the volume
    std::optional<DiskVersion> version = {};  // of an entry of a listing, if the listing had to open it

    bool Exists() const { return entry.has_value(); }
    bool IsFolder() const { return entry && entry->IsFolder(); }
    bool IsTopLevel() const { return path.IsRoot() || path.IsMountFolder(); }
    std::string Url() const { return Href(path, IsFolder()); }
    // The path for the volume, even of something that is missing.
    const VolumePath& StoredPath() const { return entry ? entry->path : path; }
};

// Finds path, also by a short name, or when its accents are composed differently than stored. Links are not followed.
Resource Locate(const Volume& volume, const VolumePath& path);
// The same, for an entry of a listing of folder.
Resource Listed(const Resource& folder, const Entry& entry);
// Do the names differ only in letter case and in the composition of accents?
bool AreSpellings(const std::wstring& left, const std::wstring& right);
// The entries of a folder that a client finds when it asks for their names.
class ListedEntries {
public:
    ListedEntries(const Volume& volume, const Resource& folder);
    // version receives the entry's version, if it had to be opened.
    bool Has(const Entry& entry, std::optional<DiskVersion>* version = nullptr) const;

private:
    bool IsHidden(const std::wstring& conflictName) const;

    const Volume& m_volume;
    const Resource& m_folder;
    mutable std::optional<std::set<std::wstring, decltype(&LessNoCase)>> m_hiding;  // files named like conflict copies
    std::size_t m_mountPathSize = 0;                                                // units
    std::wstring m_onDisk;                                                          // set only if every entry has to be opened
};

}  // namespace webdav
