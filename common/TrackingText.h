// The tracking file, "report.docx.hvf" beside the decrypted copy "report.docx": a small XML text that names the container which the copy
// belongs to, and is kept as long as the copy may hold an edit that is not in the container. Its names are not escaped, so an XML
// parser cannot read it. Text only, the disk is not accessed; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/FileStamp.h"

// The path of the copy is put in; what follows it is the extension.
inline constexpr wchar_t kTrackingPathFormat[] = L"%s.hvf";
inline constexpr std::wstring_view kTrackingExtension = std::wstring_view(kTrackingPathFormat).substr(2);

struct TrackingRecord {
    std::wstring sourceName;  // full path of the container
    FileStamp source;         // of the container when the copy was made
    std::wstring tempName;    // full path of the copy
    FileStamp temp;           // when it was made; all 0 for a container that is to be copied over a locked one
    std::wstring fileSpec;    // the name under which the document is shown

    bool operator==(const TrackingRecord&) const = default;
    // False: characters of the container's path are lost.
    bool IsSourceKnown() const;
};

// The file's bytes: in the system's narrow characters, with CR LF line ends. When that set lacks a character of a name, a last line,
// "<!-- utf8: source | temp | file spec -->", repeats the three names as UTF-8 with every byte except ASCII letters, digits, ".",
// "_" and "-" as %XX. The fields for a process and for "ar" are part of the format; the volume leaves them empty.
std::string TrackingText(const TrackingRecord& record);

// Nothing when bytes are not a complete tracking file. Full names in a last line count if they agree with the others.
std::optional<TrackingRecord> ParseTrackingText(std::string_view bytes);
