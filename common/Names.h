// What names mean, for all who must agree on it: the volume, its companion library and its hosts. Stateless; any thread.
#pragma once

#include <cstddef>
#include <string_view>

// "report.docx" is stored as "report.docx.zip", and shown as "report.HvcConflicted" where its own name means something else.
inline constexpr std::wstring_view kContainerExtension = L".zip";
inline constexpr std::wstring_view kConflictExtension = L".HvcConflicted";

// One unit in upper case, as file names are compared; units without one stay as they are.
wchar_t UpperUnit(wchar_t unit);
// Two names, or paths, that mean the same file.
bool EqualNoCase(std::wstring_view left, std::wstring_view right);
bool LessNoCase(std::wstring_view left, std::wstring_view right);
bool EndsWithNoCase(std::wstring_view text, std::wstring_view end);

// "report.docx.zip" -> "report.docx"; what has another ending as it is.
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

// Names that the volume keeps for itself in every folder: it never lists them, stores them as they are, and may need their place.
bool IsReservedName(std::wstring_view name);

// The platform opens a device for these names in every folder, whatever extension follows; one of a serial line may wait for ever.
bool IsDeviceName(std::wstring_view name);
