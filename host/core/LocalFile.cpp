#include "core/LocalFile.h"

#include <utility>

#include "common/Halves.h"
#include "core/HostError.h"
#include "core/Text.h"

namespace {

constexpr const wchar_t* kStandardStream = L"-";

}  // namespace

LocalSource::LocalSource(const std::wstring& path) : m_path(path), m_isStandardInput(path == kStandardStream) {
    if (m_isStandardInput) {
        m_path = L"standard input";
        m_file = GetStdHandle(STD_INPUT_HANDLE);
        return;
    }
    if (IsLocalFolder(path))
        throw HostError(ToShown(path) + ": a folder; put takes one file");
    m_owned =
        OwnHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    TakeSize();
}

LocalSource::LocalSource(UniqueHandle file, const std::wstring& path) : m_path(path), m_owned(std::move(file)), m_isStandardInput(false) {
    TakeSize();
}

void LocalSource::TakeSize() {
    LARGE_INTEGER size{};
    m_file = m_owned.Get();
    if (!m_owned || !GetFileSizeEx(m_file, &size))
        throw LocalError(m_path, GetLastError());
    m_size = static_cast<std::uint64_t>(size.QuadPart);
}

std::size_t LocalSource::Read(void* buffer, std::size_t capacity) {
    DWORD count = 0;
    if (!ReadFile(m_file, buffer, static_cast<DWORD>(capacity), &count, nullptr)) {
        const DWORD error = GetLastError();
        if (!m_isStandardInput || error != ERROR_BROKEN_PIPE)  // the end of a pipe
            throw LocalError(m_path, error);
    }
    m_done += count;
    if (count == 0 && m_done < m_size)
        throw HostError(ToShown(m_path) + ": it ends after " + std::to_string(m_done) + " of " + std::to_string(m_size) + " bytes");
    return count;
}

void LocalSource::ReadTimes(VirtFindData& findData) const {
    FILETIME created, accessed, written;
    if (m_isStandardInput || !GetFileTime(m_file, &created, &accessed, &written))
        return;
    findData.creationTime = FileTimeNumber(created);
    findData.lastAccessTime = FileTimeNumber(accessed);
    findData.lastWriteTime = FileTimeNumber(written);
}

LocalTarget::LocalTarget(const std::wstring& path) : m_path(path), m_isStandardOutput(path == kStandardStream) {
    if (m_isStandardOutput) {
        m_path = L"standard output";
        m_file = GetStdHandle(STD_OUTPUT_HANDLE);
        return;
    }
    m_asidePath = path + L"." + UniqueSuffix() + L".part";
    m_owned = OwnHandle(CreateFileW(m_asidePath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_owned)
        throw LocalError(path, GetLastError());
    m_file = m_owned.Get();
}

LocalTarget::~LocalTarget() {
    m_owned.Reset();
    if (!m_asidePath.empty())
        DeleteFileW(m_asidePath.c_str());
}

void LocalTarget::Write(const void* data, std::size_t size) {
    const char* position = static_cast<const char*>(data);
    while (size > 0) {
        DWORD count = 0;
        if (!WriteFile(m_file, position, static_cast<DWORD>(size), &count, nullptr))
            throw LocalError(m_path, GetLastError());
        position += count;
        size -= count;
    }
}

void LocalTarget::Finish(std::uint64_t lastWriteTime) {
    if (m_isStandardOutput)
        return;
    const FILETIME written = FileTimeOf(lastWriteTime);
    if (lastWriteTime != 0)
        SetFileTime(m_file, nullptr, nullptr, &written);
    m_owned.Reset();
    if (!MoveFileExW(m_asidePath.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        throw LocalError(m_path, GetLastError());
    m_asidePath.clear();
}

bool IsLocalFolder(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}
