// The tracking file of a temp file, on disk: common/TrackingText.h. With it, an edit that is left behind can be saved.
#pragma once

#include <string>

#include "common/TrackingText.h"

// "report.docx" -> "report.docx.hvf"
std::wstring TrackingFilePathStr(const std::wstring& tempFilePath);

// Writes the record to path, over what is there. False: the file could not be written completely.
bool WriteTrackingFile(const std::wstring& path, const TrackingRecord& record);
