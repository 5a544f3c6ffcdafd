#include "webdav/Spool.h"

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

constexpr std::size_t kPartSize = 64 * 1024;

[[noreturn]] void ThrowFileError() {
    const DWORD error = GetLastError();
    throw HttpError(error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL ? 507 : 500,
                    "the upload could not be kept: " + SystemMessage(error));
}

UniqueHandle CreateSpoolFile(const TempFolder& temp) {
    const std::wstring path = (temp.Path() / (L"upload-" + UniqueSuffix())).native();
    UniqueHandle file = OwnHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!file)
        ThrowFileError();
    return file;
}

}  // namespace

void Spool::Append(std::string_view data) {
    m_size += data.size();
    if (!m_file && m_memory.size() + data.size() <= limits::spoolMemoryBytes) {
        m_memory.insert(m_memory.end(), data.begin(), data.end());
        return;
    }
    if (!m_file) {
        m_file = CreateSpoolFile(m_temp);
        WriteToFile({m_memory.data(), m_memory.size()});
        std::vector<char>().swap(m_memory);
    }
    RequireRoom(data.size());
    WriteToFile(data);
}

// Checked repeatedly, because an upload may have no known length.
void Spool::RequireRoom(std::size_t newBytes) const {
    constexpr std::uint64_t step = 4 << 20;
    if (m_size / step != (m_size - newBytes) / step && !m_temp.HasRoomFor(limits::diskReserve))
        throw HttpError(507, "the disk of the temp folder is full");
}

void Spool::WriteToFile(std::string_view data) {
    while (!data.empty()) {
        DWORD count = 0;
        if (!WriteFile(m_file.Get(), data.data(), static_cast<DWORD>(data.size()), &count, nullptr))
            ThrowFileError();
        data.remove_prefix(count);
    }
}

void Spool::ForEach(const std::function<void(std::string_view)>& take) {
    if (!m_file) {
        take({m_memory.data(), m_memory.size()});
        return;
    }
    if (!SetFilePointerEx(m_file.Get(), {}, nullptr, FILE_BEGIN))
        ThrowFileError();
    std::vector<char> part(kPartSize);
    for (DWORD count = 1; count > 0;) {
        if (!ReadFile(m_file.Get(), part.data(), static_cast<DWORD>(part.size()), &count, nullptr))
            ThrowFileError();
        take({part.data(), count});
    }
}

}  // namespace webdav
