#include "ZipFormat.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <zlib.h>

#include "ContentCipher.h"

namespace companion {
namespace {

static_assert(std::endian::native == std::endian::little, "ZIP files are little-endian, and so are the numbers here");

using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

constexpr U32 kLocalSignature = 0x04034b50;
constexpr U32 kCentralSignature = 0x02014b50;
constexpr U32 kEndSignature = 0x06054b50;
constexpr U32 kEnd64Signature = 0x06064b50;
constexpr U32 kLocator64Signature = 0x07064b50;
constexpr std::size_t kEndBytes = 22;
constexpr std::size_t kLocator64Bytes = 20;
constexpr U64 kEnd64Bytes = 56;

constexpr U16 kZip64Field = 0x0001;
constexpr U16 kTimesField = 0x5455;
constexpr U16 kUnicodeNameField = 0x7075;
constexpr U16 kAesField = 0x9901;

constexpr U16 kAesMethod = 99;
constexpr U16 kEncryptedFlag = 0x0001;
constexpr U16 kStrongEncryptionFlag = 0x0040;
constexpr U16 kUtf8Flag = 0x0800;
constexpr U16 kVersionOfZip64 = 45;
constexpr U16 kVersionOfAes = 51;
constexpr U16 kMadeByUnix = 3;
constexpr U32 kRegularFile = 0100000;
constexpr U32 kFileTypeMask = 0170000;
constexpr U32 kWritePermissions = 0222;
constexpr U32 kDosFolder = 0x10;

// Written instead of a number that is too large for its field; the Zip64 field or record then has the number.
constexpr U16 kElsewhere16 = 0xFFFF;
constexpr U32 kElsewhere32 = 0xFFFFFFFF;

U32 Narrowed(U64 number) { return static_cast<U32>(std::min<U64>(number, kElsewhere32)); }

template <class... Numbers>
std::string Bytes(Numbers... numbers) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char*>(&numbers), sizeof(numbers)), ...);
    return bytes;
}

std::string Field(U16 id, const std::string& content) {
    return content.empty() ? content : Bytes(id, static_cast<U16>(content.size())) + content;
}

std::string TimesField(const ZipEntry& entry) {
    std::string times;
    std::uint8_t present = 0;
    std::uint8_t bit = 1;
    for (const U32 time : {entry.lastWrite, entry.lastAccess, entry.creation}) {
        if (time != 0) {
            present |= bit;
            times += Bytes(time);
        }
        bit = static_cast<std::uint8_t>(bit << 1);
    }
    return Field(kTimesField, Bytes(present) + times);
}

// For AE-2, which has no checksum.
std::string AesField(const ZipEntry& entry) {
    if (entry.keyBytes == 0)
        return {};
    const auto strength = static_cast<std::uint8_t>(entry.keyBytes / 8 - 1);
    return Field(kAesField, Bytes(U16{2}, 'A', 'E', strength, entry.compression));
}

// The part that both headers share, from the version needed to the checksum.
std::string CommonPart(const ZipEntry& entry) {
    const bool isEncrypted = entry.keyBytes != 0;
    const U16 version = isEncrypted ? kVersionOfAes : kVersionOfZip64;
    const U16 flags = static_cast<U16>((isEncrypted ? kEncryptedFlag : 0) | (entry.isNameUtf8 ? kUtf8Flag : 0));
    return Bytes(version, flags, isEncrypted ? kAesMethod : entry.compression, entry.dosTime, U32{0});
}

// Takes numbers and texts from the front of bytes. Missing ones are 0 or empty, and recorded as missing.
class Fields {
public:
    explicit Fields(std::string_view bytes) : m_rest(bytes) {}

    template <class Number>
    Number Take() {
        Number number = 0;
        if (const std::string_view bytes = Take(sizeof(Number)); !bytes.empty())
            std::memcpy(&number, bytes.data(), sizeof(Number));
        return number;
    }
    std::string_view Take(std::size_t length) {
        m_isWhole = m_isWhole && length <= m_rest.size();
        const std::string_view taken = m_isWhole ? m_rest.substr(0, length) : std::string_view();
        m_rest.remove_prefix(taken.size());
        return taken;
    }
    void Skip(std::size_t length) { Take(length); }
    std::string_view Rest() const { return m_rest; }
    bool IsWhole() const { return m_isWhole; }

private:
    std::string_view m_rest;
    bool m_isWhole = true;
};

void ReadTimes(Fields field, ZipEntry& entry) {
    const auto present = field.Take<std::uint8_t>();
    std::uint8_t bit = 1;
    // The central directory often has only the first one.
    for (U32* const time : {&entry.lastWrite, &entry.lastAccess, &entry.creation}) {
        if ((present & bit) && !field.Rest().empty())
            *time = field.Take<U32>();
        bit = static_cast<std::uint8_t>(bit << 1);
    }
}

void ReadAes(Fields field, ZipEntry& entry) {
    const bool hasChecksum = field.Take<U16>() == 1;
    if (field.Take(2) != "AE")
        return;
    const auto strength = field.Take<std::uint8_t>();
    if (strength < 1 || strength > 3)
        return;
    entry.keyBytes = 8u * (strength + 1u);
    entry.compression = field.Take<U16>();
    if (!hasChecksum)
        entry.checksum.reset();
}

void ReadUnicodeName(Fields field, ZipEntry& entry) {
    const auto version = field.Take<std::uint8_t>();
    const U32 checksum = field.Take<U32>();
    const auto* const name = reinterpret_cast<const Bytef*>(entry.name.data());
    if (version != 1 || checksum != crc32(0, name, static_cast<uInt>(entry.name.size())))
        return;
    entry.name = field.Rest();
    entry.isNameUtf8 = true;
}

void ReadZip64(Fields field, ZipEntry& entry) {
    for (U64* const number : {&entry.plainBytes, &entry.storedBytes, &entry.headerAt}) {
        if (*number == kElsewhere32)
            *number = field.Take<U64>();
    }
}

template <class Use>
void ForEachField(std::string_view extra, Use&& use) {
    Fields fields(extra);
    while (fields.Rest().size() >= 2 * sizeof(U16)) {
        const U16 id = fields.Take<U16>();
        const std::string_view content = fields.Take(fields.Take<U16>());
        if (!fields.IsWhole())
            return;
        use(id, Fields(content));
    }
}

// Reads one header of the central directory; these bytes must contain nothing else.
std::optional<ZipEntry> CentralHeader(std::string_view bytes) {
    ZipEntry entry;
    Fields header(bytes);
    const bool isHeader = header.Take<U32>() == kCentralSignature;
    const U16 madeBy = header.Take<U16>();
    header.Skip(sizeof(U16));
    const U16 flags = header.Take<U16>();
    const U16 method = header.Take<U16>();
    entry.dosTime = header.Take<U32>();
    entry.checksum = header.Take<U32>();
    entry.storedBytes = header.Take<U32>();
    entry.plainBytes = header.Take<U32>();
    const U16 nameBytes = header.Take<U16>();
    const U16 extraBytes = header.Take<U16>();
    const U16 commentBytes = header.Take<U16>();
    header.Skip(2 * sizeof(U16));  // the disk, internal attributes
    const U32 attributes = header.Take<U32>();
    entry.headerAt = header.Take<U32>();
    entry.name = header.Take(nameBytes);
    entry.isNameUtf8 = (flags & kUtf8Flag) != 0;
    const std::string_view extra = header.Take(extraBytes);
    header.Skip(commentBytes);
    if (!isHeader || !header.IsWhole() || !header.Rest().empty())
        return std::nullopt;

    ForEachField(extra, [&](U16 id, Fields field) {
        if (id == kZip64Field)
            ReadZip64(field, entry);
        else if (id == kTimesField)
            ReadTimes(field, entry);
        else if (id == kAesField && method == kAesMethod)
            ReadAes(field, entry);
        else if (id == kUnicodeNameField)
            ReadUnicodeName(field, entry);
    });
    const U32 fileType = madeBy >> 8 == kMadeByUnix ? attributes >> 16 & kFileTypeMask : 0;
    entry.isReadOnly = (attributes >> 16 & kWritePermissions) == 0;
    const bool isFile = (fileType == 0 || fileType == kRegularFile) && !(attributes & kDosFolder) && !entry.name.ends_with('/');
    const bool isAes = entry.keyBytes != 0 && (flags & (kEncryptedFlag | kStrongEncryptionFlag)) == kEncryptedFlag;
    const bool isEmpty = entry.keyBytes == 0 && !(flags & kEncryptedFlag) && entry.plainBytes == 0 && entry.storedBytes == 0;
    return isFile && (isAes || isEmpty) ? std::optional(std::move(entry)) : std::nullopt;
}

struct Directory {
    U64 entries;
    U64 sizeBytes;
    U64 at;
    U64 endsAt;  // where the end record begins
};

// The size that an entry names is used before the content is authenticated: in listings, and to check the room on the disk.
bool CanBeTrue(const ZipEntry& entry) {
    constexpr U64 mostOfOneByte = 1032;  // the most bytes that deflate stores in one
    const U64 added = entry.keyBytes == 0 ? 0 : ContentCipher::AddedBytes(entry.keyBytes);
    const U64 stored = entry.storedBytes - added;
    return entry.storedBytes >= added && (entry.compression == 0 ? entry.plainBytes == stored : entry.plainBytes / mostOfOneByte <= stored);
}

// at is the offset in the file of the first of these bytes.
std::optional<Directory> FindDirectory(std::string_view end, U64 at) {
    const std::string signature = Bytes(kEndSignature);
    const std::size_t place = end.size() < kEndBytes ? end.npos : end.rfind(signature, end.size() - kEndBytes);
    if (place == end.npos)
        return std::nullopt;
    Fields record(end.substr(place));
    record.Skip(sizeof(U32) + 3 * sizeof(U16));  // signature, two numbers of disks, entries on this disk
    const U16 entries = record.Take<U16>();
    const U32 sizeBytes = record.Take<U32>();
    const U32 offset = record.Take<U32>();
    const Directory directory{entries, sizeBytes, offset, at + place};
    if (entries != kElsewhere16 && sizeBytes != kElsewhere32 && offset != kElsewhere32)
        return directory;

    if (place < kLocator64Bytes)
        return directory;
    Fields locator(end.substr(place - kLocator64Bytes, kLocator64Bytes));
    if (locator.Take<U32>() != kLocator64Signature)
        return directory;
    locator.Skip(sizeof(U32));
    const U64 record64At = locator.Take<U64>();
    if (record64At < at || record64At - at > place)
        return std::nullopt;
    Fields record64(end.substr(static_cast<std::size_t>(record64At - at)));
    const bool isRecord = record64.Take<U32>() == kEnd64Signature;
    record64.Skip(sizeof(U64) + 2 * sizeof(U16) + 2 * sizeof(U32) + sizeof(U64));
    const U64 entries64 = record64.Take<U64>();
    const U64 sizeBytes64 = record64.Take<U64>();
    const U64 offset64 = record64.Take<U64>();
    if (!isRecord || !record64.IsWhole())
        return std::nullopt;
    return Directory{entries64, sizeBytes64, offset64, record64At};
}

}  // namespace

std::string LocalHeader(const ZipEntry& entry) {
    const std::string extra = Field(kZip64Field, Bytes(entry.plainBytes, entry.storedBytes)) + TimesField(entry) + AesField(entry);
    return Bytes(kLocalSignature) + CommonPart(entry) +
           Bytes(kElsewhere32, kElsewhere32, static_cast<U16>(entry.name.size()), static_cast<U16>(extra.size())) + entry.name + extra;
}

std::string CentralDirectory(const ZipEntry& entry, std::uint64_t at) {
    std::string zip64;
    for (const U64 number : {entry.plainBytes, entry.storedBytes}) {
        if (number >= kElsewhere32)
            zip64 += Bytes(number);
    }
    const std::string extra = Field(kZip64Field, zip64) + TimesField(entry) + AesField(entry);
    const U32 permissions = entry.isReadOnly ? 0444 : 0644;
    const std::string header = Bytes(kCentralSignature, static_cast<U16>(kMadeByUnix << 8 | kVersionOfAes)) + CommonPart(entry) +
                               Bytes(Narrowed(entry.storedBytes), Narrowed(entry.plainBytes), static_cast<U16>(entry.name.size()),
                                     static_cast<U16>(extra.size()), U16{0}, U16{0}, U16{0}, (kRegularFile | permissions) << 16, U32{0}) +
                               entry.name + extra;

    std::string end64;
    if (at >= kElsewhere32) {
        const U64 bytesThatFollow = kEnd64Bytes - sizeof(U32) - sizeof(U64);
        end64 =
            Bytes(kEnd64Signature, bytesThatFollow, kVersionOfAes, kVersionOfAes, U32{0}, U32{0}, U64{1}, U64{1}, U64{header.size()}, at) +
            Bytes(kLocator64Signature, U32{0}, at + header.size(), U32{1});
    }
    return header + end64 + Bytes(kEndSignature, U16{0}, U16{0}, U16{1}, U16{1}, static_cast<U32>(header.size()), Narrowed(at), U16{0});
}

std::optional<ZipEntry> OnlyEntry(std::string_view end, std::uint64_t fileBytes) {
    const U64 endAt = fileBytes - end.size();
    const auto directory = FindDirectory(end, endAt);
    // The content must end where the directory begins, and the directory where its end record begins: nothing is missing or added.
    if (!directory || directory->entries != 1 || directory->at < endAt || directory->at > directory->endsAt ||
        directory->sizeBytes != directory->endsAt - directory->at)
        return std::nullopt;
    const std::string_view records = end.substr(static_cast<std::size_t>(directory->at - endAt));
    auto entry = CentralHeader(records.substr(0, static_cast<std::size_t>(directory->sizeBytes)));
    if (entry && (entry->headerAt > directory->at || entry->storedBytes > directory->at - entry->headerAt || !CanBeTrue(*entry)))
        return std::nullopt;
    if (entry)
        entry->isOwnForm = CentralDirectory(*entry, directory->at) == records;
    return entry;
}

bool EndsOtherZip(std::string_view end, std::uint64_t fileBytes) {
    const auto directory = FindDirectory(end, fileBytes - end.size());
    return directory && directory->entries != 1;
}

bool CanBeginContainer(std::string_view begin) {
    Fields header(begin);
    if (begin.find_first_not_of('\0') == begin.npos)
        return true;
    const bool isHeader = header.Take<U32>() == kLocalSignature;
    header.Skip(2 * sizeof(U16));
    return isHeader && header.Take<U16>() == kAesMethod && header.IsWhole();
}

std::optional<std::size_t> LocalHeaderBytes(std::string_view begin, ZipEntry& entry) {
    Fields header(begin);
    const bool isHeader = header.Take<U32>() == kLocalSignature;
    constexpr std::size_t upToName = 3 * sizeof(U16) + 4 * sizeof(U32);
    header.Skip(upToName);
    const U16 nameBytes = header.Take<U16>();
    const U16 extraBytes = header.Take<U16>();
    header.Skip(nameBytes);
    const std::string_view extra = header.Take(extraBytes);
    if (!isHeader || !header.IsWhole())
        return std::nullopt;
    ZipEntry local;
    ForEachField(extra, [&](U16 id, Fields field) {
        if (id == kTimesField)
            ReadTimes(field, local);
    });
    for (const auto time : {&ZipEntry::lastWrite, &ZipEntry::lastAccess, &ZipEntry::creation}) {
        if (entry.*time == 0)
            entry.*time = local.*time;
    }
    return begin.size() - header.Rest().size();
}

}  // namespace companion
