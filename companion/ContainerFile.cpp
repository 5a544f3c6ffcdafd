#include "ContainerFile.h"

#include <algorithm>
#include <array>

#include "Boundary.h"
#include "Paths.h"
#include "SystemTime.h"
#include "Text.h"
#include "common/CharacterSets.h"

namespace companion {
namespace {

using EndOfFile = std::array<std::uint8_t, kZipEndBytes>;

std::string_view AsText(std::span<const std::uint8_t> bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

}  // namespace

ContainerFile::ContainerFile(const std::wstring& path)
    : m_file(CreateFileW(OpenablePath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
    if (m_file)
        FindEntry();
    else
        m_openError = GetLastError();
}

void ContainerFile::FindEntry() {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(m_file.Get(), &size)) {
        m_readError = GetLastError();
        return;
    }
    const auto fileBytes = static_cast<std::uint64_t>(size.QuadPart);
    EndOfFile buffer;
    const std::span end(buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), fileBytes)));
    if (ReadUpTo(fileBytes - end.size(), end) != end.size())
        return;
    auto zip = OnlyEntry(AsText(end), fileBytes);
    if (!zip) {
        const bool isOther = EndsOtherZip(AsText(end), fileBytes);
        const std::span begin(buffer.data(), ReadUpTo(0, std::span(buffer).first(kLocalHeaderStart)));
        m_isBroken = m_readError == 0 && !isOther && CanBeginContainer(AsText(begin));
        return;
    }
    const std::span begin(buffer.data(), ReadUpTo(zip->headerAt, buffer));
    m_isBroken = m_readError == 0;
    if (const auto headerBytes = LocalHeaderBytes(AsText(begin), *zip)) {
        m_contentAt = zip->headerAt + *headerBytes;
        m_zip = std::move(zip);
        m_isBroken = false;
    }
}

std::optional<ContainerEntry> ContainerFile::Entry() const {
    if (!m_zip)
        return std::nullopt;
    ContainerEntry entry;
    // Windows programs look for composed accents, whatever the program that wrote the container used.
    entry.name = Composed(m_zip->isNameUtf8 ? Widened(m_zip->name, CharacterSet::Utf8) : Widened(m_zip->name, CharacterSet::Console));
    entry.plainSize = m_zip->plainBytes;
    entry.lastWrite = m_zip->lastWrite ? m_zip->lastWrite : TimeOfDos(m_zip->dosTime);
    // Some programs store only the first time.
    entry.lastAccess = m_zip->lastAccess ? m_zip->lastAccess : entry.lastWrite;
    entry.creation = m_zip->creation ? m_zip->creation : entry.lastWrite;
    return entry;
}

void ContainerFile::Read(std::uint64_t at, std::span<std::uint8_t> buffer) {
    if (ReadUpTo(at, buffer) == buffer.size())
        return;
    if (m_readError != 0)
        FailWithError(L"The container cannot be read", m_readError);
    Fail(L"The container is damaged: it ends too early");
}

std::size_t ContainerFile::ReadUpTo(std::uint64_t at, std::span<std::uint8_t> buffer) {
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(at);
    DWORD read = 0;
    if (SetFilePointerEx(m_file.Get(), position, nullptr, FILE_BEGIN) &&
        ReadFile(m_file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr))
        return read;
    m_readError = GetLastError();
    return 0;
}

}  // namespace companion
