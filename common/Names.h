// Rules of names that the volume, its companion library and quelvol share. Stateless; any thread.
#pragma once

#include <cstddef>
#include <string_view>

// "report.docx" is stored as "report.docx.zip"; a conflict copy "report.zip" is shown as "report.HvcConflicted".
inline constexpr std::wstring_view kContainerExtension = L".zip";
inline constexpr std::wstring_view kConflictExtension = L".HvcConflicted";

// The upper-case form of one unit, by which file names are compared; the unit itself if it has none.
wchar_t UpperUnit(wchar_t unit);
// Do two names, or paths, differ in letter case only?
bool EqualNoCase(std::wstring_view left, std::wstring_view right);
bool LessNoCase(std::wstring_view left, std::wstring_view right);
bool EndsWithNoCase(std::wstring_view text, std::wstring_view end);

// "report.docx.zip" -> "report.docx"; a name with another extension is returned unchanged.
std::wstring_view WithoutContainerExtension(std::wstring_view name);

// For tables keyed by paths or names that differ in letter case only: h = h * 33 + upper-case unit, from 0.
struct NoCaseHash {
    using is_transparent = void;
    std::size_t operator()(std::wstring_view text) const {
        std::size_t hash = 0;
        for (const wchar_t unit : text)
            hash = hash * 33 + UpperUnit(unit);
        return hash;
    }
};
struct NoCaseEqual {
    using is_transparent = void;
    bool operator()(std::wstring_view left, std::wstring_view right) const { return EqualNoCase(left, right); }
};

// Names that the volume reserves in every folder: it never lists or encrypts them, and may create files of these names.
bool IsReservedName(std::wstring_view name);
// The reserved folder in which containers are written before they take their place.
inline constexpr std::wstring_view kSideFolderName = L".HalvaneCloud";
// The folder of decrypted copies, in the temp folder.
inline constexpr std::wstring_view kCopiesFolderName = L"HalvaneCloud";

// "~{<guid>}.tmp": a plain file that takes another's place when it is complete. A killed program leaves it behind.
inline constexpr std::wstring_view kSideFileStart = L"~", kSideFileEnd = L".tmp";
bool IsSideFileName(std::wstring_view name);

// Can a file or folder have this name? It must not contain units of patterns, streams or the shell.
bool IsPossibleName(std::wstring_view name);

// Is this a name for which the platform opens a device, in every folder and with any extension? To open a serial port may wait for ever.
bool IsDeviceName(std::wstring_view name);
