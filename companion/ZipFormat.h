// The records of a ZIP file with one entry, which is AES-encrypted or empty, from and to bytes. Does not access files.
//
//     local header   salt, verifier, encrypted content, authentication code   central directory
//
// Containers are written with the sizes in both headers; when reading, which may be another program's file, the central directory counts.
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
    bool isReadOnly = false;                // by its permissions
    std::size_t keyBytes = 0;               // 16, 24 or 32 for AES-128, -192 or -256; 0: not encrypted, and empty
    std::uint16_t compression = 0;          // below the encryption; only 0 (stored) is written
    std::optional<std::uint32_t> checksum;  // CRC-32 of the plain content (AE-1); never written, because it reveals something of it
    std::uint64_t plainBytes = 0;
    std::uint64_t storedBytes = 0;  // with salt, verifier and authentication code
    std::uint64_t headerAt = 0;     // where the local header begins; 0 when written
    std::uint32_t dosTime = 0;      // last write, local time: date in the upper half
    // Seconds since 1970, UTC; 0: absent.
    std::uint32_t lastWrite = 0;
    std::uint32_t lastAccess = 0;
    std::uint32_t creation = 0;
    bool isOwnForm = false;  // read only: its records are exactly those that CentralDirectory writes
};

// Its length does not depend on the sizes, so it can be written before they are known and again afterwards.
std::string LocalHeader(const ZipEntry& entry);
// The end of the file; at is the length before it.
std::string CentralDirectory(const ZipEntry& entry, std::uint64_t at);

// So many bytes at each end of a file, or all of a smaller one, contain everything but the content.
constexpr std::size_t kZipEndBytes = 16 * 1024;

// The entry of a file that ends with these bytes. Nothing when it has more or fewer entries than one, or one of another kind.
std::optional<ZipEntry> OnlyEntry(std::string_view end, std::uint64_t fileBytes);

// To distinguish a damaged container from another kind of file. Is this the end of a ZIP file with more entries than one, or none? Can
// these first kLocalHeaderStart bytes, or fewer, be the rest of a container's beginning? No bytes and zeros, which a crash leaves, can.
constexpr std::size_t kLocalHeaderStart = 10;
bool EndsOtherZip(std::string_view end, std::uint64_t fileBytes);
bool CanBeginContainer(std::string_view begin);

// The length of the local header at the start of these bytes; nothing when there is none. Adds the times that entry lacks.
std::optional<std::size_t> LocalHeaderBytes(std::string_view begin, ZipEntry& entry);

}  // namespace companion
