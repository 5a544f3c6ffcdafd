#include "core/Turn.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <windows.h>

#include "companion/SideFile.h"
#include "core/Companion.h"
#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/OnDisk.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr DWORD c_blockSize = 256 * 1024;

// The old form, held. Nobody else can write, rename or delete it.
class HeldFile {
public:
    explicit HeldFile(const std::wstring& path)
        : m_path(path), m_file(OpenItself(RealPath(path), GENERIC_READ | DELETE | FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ)) {
        if (!m_file || !GetFileInformationByHandle(m_file.get(), &m_information))
            throw LocalError(m_path, GetLastError());
    }
    const BY_HANDLE_FILE_INFORMATION& Information() const { return m_information; }

    // The next bytes; fewer at the end.
    std::size_t Read(char* buffer, std::size_t size) {
        DWORD read = 0;
        if (!ReadFile(m_file.get(), buffer, static_cast<DWORD>(size), &read, nullptr))
            throw LocalError(m_path, GetLastError());
        return read;
    }
    void Rewind() { SetFilePointer(m_file.get(), 0, nullptr, FILE_BEGIN); }
    void Delete() {
        if (!DeleteOpen(m_file))
            throw LocalError(m_path, GetLastError());
    }

private:
    std::wstring m_path;
    DiskHandle m_file;
    BY_HANDLE_FILE_INFORMATION m_information{};
};

bool IsThere(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES || GetLastError() == ERROR_ACCESS_DENIED;
}

// Does the container hold exactly what the plain file does? The file is read from its beginning.
bool HaveOneContent(const std::wstring& containerPath, HeldFile& plain, const ByteCount& count) {
    bool isSame = true;
    std::vector<char> buffer(c_blockSize);
    plain.Rewind();
    ReadContainer(containerPath, [&](const char* data, std::size_t size) {
        StopIfInterrupted();
        count(size);
        while (isSame && size > 0) {
            const std::size_t length = plain.Read(buffer.data(), std::min<std::size_t>(size, buffer.size()));
            isSame = length > 0 && std::memcmp(data, buffer.data(), length) == 0;
            data += length;
            size -= length;
        }
    });
    return isSame && plain.Read(buffer.data(), 1) == 0;
}

[[noreturn]] void ThrowBoth(const std::wstring& plainPath, const std::wstring& containerPath) {
    throw HostError(ToUtf8(plainPath) + " and " + ToUtf8(containerPath) + ": both are there, with different content; remove or rename one of them");
}

void WriteContainer(const std::wstring& plainPath, const std::wstring& containerPath, HeldFile& plain, const ByteCount& count) {
    NewContainer container(containerPath, plainPath.substr(plainPath.rfind(L'\\') + 1), plainPath, plain.Information());
    std::vector<char> buffer(c_blockSize);
    while (const std::size_t size = plain.Read(buffer.data(), buffer.size())) {
        StopIfInterrupted();
        container.Write(buffer.data(), size);
        count(size);
    }
    if (IsThere(containerPath))  // since it was last looked for
        ThrowBoth(plainPath, containerPath);
    container.Finish();
}

void WritePlain(const std::wstring& plainPath, const std::wstring& containerPath, const HeldFile& container, const ByteCount& count) {
    try {
        companion::SideFile file(plainPath);
        ReadContainer(containerPath, [&](const char* data, std::size_t size) {
            StopIfInterrupted();
            if (const DWORD error = file.Write(data, size))
                throw LocalError(plainPath, error);
            count(size);
        });
        file.PutInPlace(container.Information().dwFileAttributes, companion::IfThere::Keep);
    } catch (const CQuelcryptErrorException& error) {
        throw HostError(ToUtf8(plainPath) + ": " + ToUtf8(error.GetDescription()));
    }
}

// Those of the document, as the container tells them. Without them it is still the content.
void SetTimes(const std::wstring& plainPath, const std::wstring& containerPath) {
    SYSTEMTIME times[3];
    if (!ContainerTimes(containerPath, times[0], times[1], times[2]))
        return;
    FILETIME fileTimes[3];
    for (int index = 0; index < 3; ++index)
        SystemTimeToFileTime(&times[index], &fileTimes[index]);
    if (const DiskHandle file = OpenItself(RealPath(plainPath), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
        SetFileTime(file.get(), &fileTimes[2], &fileTimes[1], &fileTimes[0]);
}

}  // namespace

void EncryptInPlace(const std::wstring& plainPath, const ByteCount& count) {
    const std::wstring containerPath = plainPath + std::wstring(kContainerExtension);
    HeldFile plain(plainPath);
    const bool wasThere = IsThere(containerPath);
    if (!wasThere)
        WriteContainer(plainPath, containerPath, plain, count);
    if (!HaveOneContent(containerPath, plain, count)) {
        if (wasThere)
            ThrowBoth(plainPath, containerPath);
        throw HostError(ToUtf8(containerPath) + ": it was written, but reading it back gives other content; the file is left as it was");
    }
    plain.Delete();
}

void DecryptInPlace(const std::wstring& containerPath, const ByteCount& count) {
    const std::wstring plainPath = containerPath.substr(0, containerPath.size() - kContainerExtension.size());
    HeldFile container(containerPath);
    const bool wasThere = IsThere(plainPath);
    if (!wasThere)
        WritePlain(plainPath, containerPath, container, count);
    {
        HeldFile plain(plainPath);
        if (!HaveOneContent(containerPath, plain, count)) {
            if (wasThere)
                ThrowBoth(plainPath, containerPath);
            throw HostError(ToUtf8(plainPath) + ": it was written, but reading it back gives other content; the container is left as it was");
        }
    }
    SetTimes(plainPath, containerPath);
    container.Delete();
}
