// What tells two states of a file apart in a listing.
#pragma once

#include <cstdint>

#include "common/Halves.h"

// Attribute bits, last-write time (FILETIME) and size in bytes. All 0: there is no file.
struct FileStamp {
    std::uint32_t attributes = 0;
    std::int64_t writeTime = 0;
    std::int64_t size = 0;
    bool operator==(const FileStamp&) const = default;
};

// Of a WIN32_FILE_ATTRIBUTE_DATA or a listing's entry.
template <class Record>
FileStamp StampOf(const Record& record) {
    return {record.dwFileAttributes, static_cast<std::int64_t>(FileTimeNumber(record.ftLastWriteTime)),
            static_cast<std::int64_t>(Joined(record.nFileSizeHigh, record.nFileSizeLow))};
}
