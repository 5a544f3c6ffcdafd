// The tracking file: a small XML text beside a temp file, which names the container that the temp file belongs to and
// the name under which it is shown. With it, an edit that is left behind can be saved.
#pragma once

#include <cstdint>
#include <string>

#include "library/FileVersion.h"

// The process and ar fields are part of the format; the volume leaves them empty.
struct TrackingRecord {
    std::wstring processName;
    std::int32_t processId = 0;
    std::wstring sourceName;  // full path of the container
    FileStamp source;         // of the container when the temp file was made
    std::wstring tempName;    // full path of the temp file
    FileStamp temp;
    std::wstring fileSpec;  // the name under which the file is shown
    std::wstring fid, fv;
    std::wstring aId, oId, oIid, oFn, oOfn, aIid, aIfn, aOfn;
};

// The record of a temp file, with the fields that the volume fills.
TrackingRecord TrackingRecordOf(const std::wstring& containerPath, const FileStamp& container, const std::wstring& tempFilePath,
                                const FileStamp& temp, const std::wstring& fileSpec);

// "report.docx" -> "report.docx.hvf"
std::wstring TrackingFilePathStr(const std::wstring& tempFilePath);

// Writes the record to path, over what is there, in the system's narrow character set with CR LF line ends. When that
// set lacks a character, a comment at the end, "<!-- utf8: source | temp | file spec -->", repeats the three texts as UTF-8 with
// every byte except ASCII letters, digits, ".", "_" and "-" as %XX. False: the file could not be written completely.
bool WriteTrackingFile(const std::wstring& path, const TrackingRecord& record);
