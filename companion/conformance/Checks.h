// What the volume requires of a companion library, by theme. Each check leaves the folders as it found them.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "companion/conformance/Library.h"
#include "companion/conformance/Report.h"

namespace conformance {

// Where it is tried. Files in encrypted and otherKey are documents; otherKey may be empty: then it is not tried.
struct Folders {
    Path encrypted, plain, otherKey;
};

void CheckConfiguration(Report& report, const Library& library, const Folders& folders);
void CheckLogger(Report& report, const Library& library);
void CheckContainers(Report& report, const Library& library, const Folders& folders);
void CheckOtherFiles(Report& report, const Library& library, const Folders& folders);
void CheckSaving(Report& report, const Library& library, const Folders& folders);
void CheckPlaces(Report& report, const Library& library, const Folders& folders);
void CheckThreads(Report& report, const Library& library, const Folders& folders);

// What the checks write begins with this, so that what a stopped run left is known.
inline const std::wstring kOwnName = L"conformance ";

// A file or folder to try with; it and its container are removed with this.
class Scratch {
public:
    Scratch(const Path& folder, const std::wstring& name);
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const Path plain, container;
};
// With all below it, read-only or not.
void Discard(const Path& path);
// The names that the volume would show, as they are on disk.
std::set<std::wstring> ShownNames(const Path& folder);

std::string SomeBytes(std::size_t size);
std::string ReadFileBytes(const Path& path);
void WriteFileBytes(const Path& path, std::string_view bytes);
// Can it be opened by one who shares it with nobody (or as told)? A scanner may hold it for a moment.
bool CanBeOpened(const Path& path, DWORD shareMode = 0);

}  // namespace conformance
