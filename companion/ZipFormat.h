// The records of a ZIP file with one entry, which is AES-encrypted or empty, from and to bytes. Knows nothing of files.
//
//     local header   salt, verifier, encrypted content, authentication code   central directory
//
// What is written has its sizes in both headers; what is read may come from another program: the central directory counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace companion {

struct ZipEntry {
    std::string name;  // as stored: UTF-8, or in the code page of the program that wrote it
    bool isNameUtf8 = true;
    bool isReadOnly = false;                // written only
    std::size_t keyBytes = 0;               // 16, 24 or 32 for AES-128, -192 or -256; 0: not encrypted, and empty
    std::uint16_t compression = 0;          // below the encryption; only 0 (stored) is written
    std::optional<std::uint32_t> checksum;  // CRC-32 of the plain content (AE-1); never written, for it would tell about the content
    std::uint64_t plainBytes = 0;
    std::uint64_t storedBytes = 0;  // with salt, verifier and authentication code
    std::uint64_t headerAt = 0;     // where the local header begins; 0 when written
    std::uint32_t dosTime = 0;      // last write, local time: date in the upper half
    // Seconds since 1970, UTC; 0: absent.
    std::uint32_t lastWrite = 0;
    std::uint32_t lastAccess = 0;
    std::uint32_t creation = 0;
};

// Has one length whatever the sizes, so that it can be written before they are known and again afterwards.
std::string LocalHeader(const ZipEntry& entry);
// Ends the file; at is its length so far.
std::string CentralDirectory(const ZipEntry& entry, std::uint64_t at);

// At each end of a file these many bytes, or all of a smaller one, hold everything but the content.
constexpr std::size_t kZipEndBytes = 16 * 1024;

// The entry of a file that ends with these bytes. Nothing when it has not exactly one entry, or one of another kind.
std::optional<ZipEntry> OnlyEntry(std::string_view end, std::uint64_t fileBytes);

// For telling a broken container from a file of another kind: does a file end so that is a ZIP file of more entries or none, and
// can these first kLocalHeaderStart bytes, or fewer, be what is left of a container's beginning? Nothing and zeros, which a crash
// leaves, can.
constexpr std::size_t kLocalHeaderStart = 10;
bool EndsOtherZip(std::string_view end, std::uint64_t fileBytes);
bool CanBeginContainer(std::string_view begin);

// The length of the local header that these bytes begin with; nothing when there is none. Adds the times that entry lacks.
std::optional<std::size_t> LocalHeaderBytes(std::string_view begin, ZipEntry& entry);

}  // namespace companion
