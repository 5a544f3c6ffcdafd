// The tracking file that the volume keeps beside a decrypted copy ("<copy>.hvf") as long as the copy may hold an edit that
// is not in its container: a small XML text in the system's narrow characters. Its names are not escaped, so an XML parser cannot
// read it. When they have other characters, a last line has them in full, percent-encoded:
// "<!-- utf8: container | copy | document -->". Text only; the disk is not accessed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// By this, two states of a file are compared. All 0: there was no file.
struct FileState {
    std::uint32_t attributes = 0;
    std::uint64_t lastWriteTime = 0;  // FILETIME
    std::uint64_t size = 0;           // bytes
    bool operator==(const FileState&) const = default;
};

struct Tracking {
    std::wstring container;    // full path of the container that the copy belongs to
    FileState containerState;  // when the copy was made
    std::wstring name;         // of the document, as shown
    std::wstring copy;         // full path of the copy
    FileState copyState;       // when it was made; all 0 for a container that was built to be copied over a locked one

    // False: characters of the path are lost.
    bool IsContainerKnown() const;
};

// Nothing when text is not a complete tracking file.
std::optional<Tracking> ParseTracking(std::wstring_view text);
