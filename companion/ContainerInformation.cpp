#include "ContainerInformation.h"

#include <algorithm>

#include "Boundary.h"
#include "ContainerFile.h"
#include "InformationMemory.h"
#include "Logger.h"
#include "Paths.h"
#include "SystemTime.h"
#include "Text.h"
#include "common/CharacterSets.h"
#include "common/Placeholder.h"

namespace companion {
namespace {

bool CanBeContainer(const WIN32_FIND_DATAW& rawEntry) {
    constexpr DWORD smallestZip = 22;
    return !(rawEntry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && (rawEntry.nFileSizeHigh != 0 || rawEntry.nFileSizeLow > smallestZip);
}

// A stored name has composed accents here. When the container's own name is the same with decomposed accents, as
// some sync clients write them, that form is shown, because its owner looks for it.
std::wstring InFormOf(const std::wstring& containerPath, const std::wstring& storedName) {
    constexpr std::size_t extensionUnits = 4;  // ".zip"
    const std::wstring fileName = containerPath.substr(FolderOf(containerPath).size() + 1);
    const std::wstring stem = fileName.substr(0, fileName.size() - std::min(fileName.size(), extensionUnits));
    const bool sameName = EqualNoCase(stem, storedName);
    return !sameName && EqualNoCase(Composed(stem), Composed(storedName)) ? stem : storedName;
}

// Sets certain to false when the file could not be read now, so that nothing is known.
std::optional<ContainerEntry> ReadEntry(const char* containerPathUtf8, bool& certain) {
    const std::wstring path = FullPath(FromUtf8(containerPathUtf8));
    const ContainerFile container(path);
    certain = false;
    if (container.OpenError() != 0)
        return std::nullopt;
    auto entry = container.Entry();
    if (entry)
        entry->name = InFormOf(path, entry->name);
    certain = container.ReadError() == 0;
    return entry;
}

std::optional<ContainerEntry> Information(const char* containerPathUtf8, const WIN32_FIND_DATAW* rawEntry) {
    static InformationMemory memory;
    bool certain = false;
    if (!rawEntry)
        return ReadEntry(containerPathUtf8, certain);
    if (!CanBeContainer(*rawEntry))
        return std::nullopt;
    if (const auto known = memory.Find(containerPathUtf8, *rawEntry))
        return *known;
    if (IsPlaceholder(rawEntry->dwFileAttributes))  // not for a listing
        return std::nullopt;
    auto entry = ReadEntry(containerPathUtf8, certain);
    if (certain)
        memory.Keep(containerPathUtf8, *rawEntry, entry);
    return entry;
}

}  // namespace

std::int32_t GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation) {
    return AtBoundary([&] {
        if (!containerPathUtf8 || !*containerPathUtf8 || !storedName || !plainSize || !lastWrite || !lastAccess || !creation)
            return 0;
        std::optional<ContainerEntry> entry;
        try {
            entry = Information(containerPathUtf8, rawEntry);
        } catch (const CQuelcryptErrorException& error) {
            // One file that cannot be described must not end a listing.
            LogLine(LogLevel_Warning, Widened(containerPathUtf8, CharacterSet::Utf8) + L": " + error.GetDescription());
        }
        if (!entry)
            return 0;
        *storedName = new CHvcStringWImpl(entry->name.c_str());
        *plainSize = entry->plainSize;
        *lastWrite = SystemTimeOf(entry->lastWrite);
        *lastAccess = SystemTimeOf(entry->lastAccess);
        *creation = SystemTimeOf(entry->creation);
        return 1;
    });
}

}  // namespace companion
