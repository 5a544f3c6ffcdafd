// The tracking file that the volume keeps beside a decrypted copy ("<copy>.hvf") for as long as the copy may hold an edit that
// is not in its container: a small XML text in the system's narrow characters. Names stand in it unescaped, so it is no XML
// for a parser. When they have other characters, a last line has them in full, percent-encoded:
// "<!-- utf8: container | copy | document -->". Text alone; no disk is touched.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What tells one state of a file from another. All 0: there was no file.
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
    FileState copyState;       // when it was made; nothing is known of a container built aside

    bool operator==(const Tracking&) const = default;
    // False: characters of the path are lost, and nothing tells which.
    bool IsContainerKnown() const;
};

// Nothing when text is not a whole tracking file.
std::optional<Tracking> ParseTracking(std::wstring_view text);
