#include "library/FileVersion.h"

#include <cstring>
#include <unordered_map>

#include "common/Halves.h"
#include "library/Locks.h"
#include "library/Owners.h"
#include "library/PlatformPath.h"
#include "library/Text.h"

namespace {

// Sync clients, backups, indexers and compression change the other attributes ("File Attribute Constants").
constexpr std::uint32_t kAttributesOfUsers =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_DIRECTORY;

// Only the hash of each path is kept: two paths with the same hash would at worst cause a conflicted edit.
struct SaveCounts {
    CriticalSection section{LockOrder::SaveCounts};
    std::unordered_map<std::size_t, std::uint64_t> saves GUARDED_BY(section);
};

SaveCounts& TheSaveCounts() {
    static SaveCounts s_counts;
    return s_counts;
}

std::uint64_t SavesOf(const std::wstring& path) {
    SaveCounts& counts = TheSaveCounts();
    const SectionGuard guard(counts.section);
    const auto found = counts.saves.find(NoCaseHash()(path));
    return found == counts.saves.end() ? 0 : found->second;
}

bool HaveOneId(const FileVersion& left, const FileVersion& right) {
    return left.volumeSerial == right.volumeSerial && left.fileId[0] == right.fileId[0] && left.fileId[1] == right.fileId[1];
}

}  // namespace

bool FileVersion::HasKnownId() const {
    const bool isZero = (fileId[0] | fileId[1]) == 0;
    const bool isAllOnes = (fileId[0] & fileId[1]) == UINT64_MAX;  // "no id" on some file systems
    return !isZero && !isAllOnes;
}

std::optional<FileStamp> ReadOpenFileStamp(HANDLE hFile) {
    FILE_BASIC_INFO info{};
    LARGE_INTEGER size{};
    if (!GetFileInformationByHandleEx(hFile, FileBasicInfo, &info, sizeof(info)) || !GetFileSizeEx(hFile, &size))
        return std::nullopt;
    return FileStamp{info.FileAttributes, info.LastWriteTime.QuadPart, size.QuadPart};
}

std::optional<FileStamp> ReadFileStamp(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(PlatformPath(path).c_str(), GetFileExInfoStandard, &data))
        return std::nullopt;
    return StampOf(data);
}

bool IsMovedVersion(const FileVersion& renamed, const FileVersion& arrived) {
    const std::uint32_t changedBits = renamed.stamp.attributes ^ arrived.stamp.attributes;
    return !(changedBits & kAttributesOfUsers) && renamed.stamp.writeTime == arrived.stamp.writeTime &&
           renamed.stamp.size == arrived.stamp.size && (!renamed.HasKnownId() || !arrived.HasKnownId() || HaveOneId(renamed, arrived));
}

bool operator==(const FileVersion& left, const FileVersion& right) {
    if (!IsMovedVersion(left, right) || left.saves != right.saves)
        return false;
    const std::uint32_t changedBits = left.stamp.attributes ^ right.stamp.attributes;
    const bool isChangeTimeKnown = left.changeTime != 0 && right.changeTime != 0 && changedBits == 0;
    return !isChangeTimeKnown || left.changeTime == right.changeTime;
}

std::optional<FileVersion> ReadOpenFileVersion(HANDLE hFile, const std::wstring& path) {
    FileVersion version;
    version.saves = SavesOf(path);  // before the file is read
    FILE_BASIC_INFO basic{};
    LARGE_INTEGER size{};
    if (!GetFileInformationByHandleEx(hFile, FileBasicInfo, &basic, sizeof(basic)) || !GetFileSizeEx(hFile, &size))
        return std::nullopt;
    version.stamp = {basic.FileAttributes, basic.LastWriteTime.QuadPart, size.QuadPart};
    version.changeTime = basic.ChangeTime.QuadPart;
    FILE_ID_INFO id{};
    if (GetFileInformationByHandleEx(hFile, FileIdInfo, &id, sizeof(id))) {
        version.volumeSerial = id.VolumeSerialNumber;
        std::memcpy(version.fileId, &id.FileId, sizeof(version.fileId));
    }
    return version;
}

// Through a handle, because what a network share says of a path may be some seconds old. A handle for attributes only disturbs nobody.
std::optional<FileVersion> ReadFileVersion(const std::wstring& path) {
    const UniqueHandle hFile = OwnHandle(::CreateFileW(PlatformPath(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                                       FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!hFile && (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND))
        return std::nullopt;
    if (hFile)
        if (const std::optional<FileVersion> version = ReadOpenFileVersion(hFile.Get(), path))
            return version;
    FileVersion version;
    version.saves = SavesOf(path);
    const std::optional<FileStamp> stamp = ReadFileStamp(path);
    version.stamp = stamp.value_or(FileStamp{});
    return stamp ? std::optional(version) : std::nullopt;
}

std::optional<bool> AreOneFile(const FileVersion& left, const FileVersion& right) {
    return left.HasKnownId() && right.HasKnownId() ? std::optional(HaveOneId(left, right)) : std::nullopt;
}

bool IsOpenFileAt(HANDLE hFile, const std::wstring& path) {
    const std::optional<FileVersion> own = ReadOpenFileVersion(hFile, path);
    const std::optional<FileVersion> there = ReadFileVersion(path);
    return own && there && AreOneFile(*own, *there).value_or(true);
}

FileVersion AtOtherPath(FileVersion version, const std::wstring& path) {
    version.saves = SavesOf(path);
    return version;
}

bool IsStillVersion(const std::optional<FileVersion>& known, const std::optional<FileVersion>& now) {
    if (now && (now->stamp.attributes & FILE_ATTRIBUTE_DIRECTORY))
        return false;  // even if the known version was a folder
    return !now || now->stamp.size == 0 || (known && *known == *now);
}

SaveCount::SaveCount(const std::wstring& path) : m_pathHash(NoCaseHash()(path)) {
    SaveCounts& counts = TheSaveCounts();
    const SectionGuard guard(counts.section);
    ++counts.saves[m_pathHash];
}

SaveCount::~SaveCount() {
    SaveCounts& counts = TheSaveCounts();
    const SectionGuard guard(counts.section);
    if (!m_isKept)
        --counts.saves.find(m_pathHash)->second;
}
