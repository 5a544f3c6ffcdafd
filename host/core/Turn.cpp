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
#include "core/Storage.h"
#include "core/Text.h"
#include "core/Upload.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr DWORD kBlockSize = 256 * 1024;

// One of the two forms of a document. It is opened by its real path; by the configured one the companion library chooses the password.
struct Form {
    std::wstring path;  // as configured, see ConfiguredPath
    std::wstring real;

    Form With(std::wstring_view end) const { return {path + std::wstring(end), real + std::wstring(end)}; }
    Form Without(std::wstring_view end) const {
        return {path.substr(0, path.size() - end.size()), real.substr(0, real.size() - end.size())};
    }
    std::wstring Name() const { return path.substr(path.rfind(L'\\') + 1); }
    std::string Shown() const { return ToUtf8(path); }

    // Throws for a link: its target may be deleted at any time.
    bool IsThere() const {
        const Standing standing = StandingAt(real);
        if (standing == Standing::Link)
            throw HostError(Shown() + ": a link, which is not followed");
        return standing == Standing::Itself;
    }
};

Form FormOf(const Volume& volume, const Entry& entry) {
    const auto folder = volume.FolderOnDisk(entry.path.Parent());
    if (!folder)
        throw StatusError(entry.ListedPath().Shown(), VVS_PathNotFound);
    return {ConfiguredPath(volume, entry), *folder + L'\\' + entry.NameOnDisk()};
}

// An open form, never a link's target. Nobody else can write, rename or delete it.
class HeldFile {
public:
    explicit HeldFile(const Form& form)
        : m_form(form), m_file(OpenItself(form.real, GENERIC_READ | DELETE | FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ)) {
        if (!m_file || !GetFileInformationByHandle(m_file.Get(), &m_information))
            throw LocalError(m_form.path, GetLastError());
    }
    const BY_HANDLE_FILE_INFORMATION& Information() const { return m_information; }

    // The next bytes, fewer at the end.
    std::size_t Read(char* buffer, std::size_t size) {
        DWORD read = 0;
        if (!ReadFile(m_file.Get(), buffer, static_cast<DWORD>(size), &read, nullptr))
            throw LocalError(m_form.path, GetLastError());
        return read;
    }
    void Rewind() { SetFilePointer(m_file.Get(), 0, nullptr, FILE_BEGIN); }
    // Sets the document's times from its container. A failure is ignored, because the content is complete.
    void TakeTimesOf(const Form& container) {
        SYSTEMTIME times[3];
        if (!ContainerTimes(container.path, times[0], times[1], times[2]))
            return;
        FILETIME fileTimes[3];
        for (int index = 0; index < 3; ++index)
            SystemTimeToFileTime(&times[index], &fileTimes[index]);
        SetFileTime(m_file.Get(), &fileTimes[2], &fileTimes[1], &fileTimes[0]);
    }
    // Deletes the file. Throws unless it and the other form are still there.
    void DeleteFor(const Form& other) {
        if (!m_form.IsThere() || !other.IsThere())
            throw HostError(m_form.Shown() + ": it was replaced meanwhile; nothing was deleted");
        if (!DeleteOpen(m_file))
            throw LocalError(m_form.path, GetLastError());
    }

private:
    Form m_form;
    UniqueHandle m_file;
    BY_HANDLE_FILE_INFORMATION m_information{};
};

// Have container and plain file the same content? Reads the plain file from its beginning.
bool HaveOneContent(const Form& container, HeldFile& plain, const ByteCount& count) {
    bool isSame = true;
    std::vector<char> buffer(kBlockSize);
    plain.Rewind();
    ReadContainer(container.path, [&](const char* data, std::size_t size) {
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

[[noreturn]] void ThrowBoth(const Form& plain, const Form& container) {
    throw HostError(plain.Shown() + " and " + container.Shown() + ": both are there, with different content; remove or rename one of them");
}

void WriteContainer(const Form& plain, const Form& container, HeldFile& content, const ByteCount& count) {
    NewContainer writer(container.path, plain.Name(), plain.path, content.Information());
    std::vector<char> buffer(kBlockSize);
    while (const std::size_t size = content.Read(buffer.data(), buffer.size())) {
        StopIfInterrupted();
        writer.Write(buffer.data(), size);
        count(size);
    }
    if (container.IsThere())  // it was created meanwhile
        ThrowBoth(plain, container);
    try {
        writer.Finish();
    } catch (const HostError&) {
        if (container.IsThere())
            ThrowBoth(plain, container);
        throw;
    }
}

void WritePlain(const Form& plain, const Form& container, const HeldFile& held, const ByteCount& count) {
    try {
        companion::SideFile file(plain.path);
        ReadContainer(container.path, [&](const char* data, std::size_t size) {
            StopIfInterrupted();
            if (const DWORD error = file.Write(data, size))
                throw LocalError(plain.path, error);
            count(size);
        });
        if (plain.IsThere())
            ThrowBoth(plain, container);
        file.PutInPlace(held.Information().dwFileAttributes, companion::IfThere::Keep);
    } catch (const CQuelcryptErrorException& error) {
        throw HostError(plain.Shown() + ": " + ToUtf8(error.GetDescription()));
    }
}

// isNew decides what the message says about different content.
void RequireOneContent(const Form& plain, const Form& container, HeldFile& content, bool isNew, const Form& made, const ByteCount& count) {
    if (HaveOneContent(container, content, count))
        return;
    if (!isNew)
        ThrowBoth(plain, container);
    throw HostError(made.Shown() + ": it was written, but reading it back gives other content; the old form is left as it was");
}

// The platform would store a document of such a name under another one.
void RefuseUnusable(const Form& plain) {
    if (const char* const problem = VolumePath::ComponentProblem(plain.Name()))
        throw HostError(plain.Shown() + ": " + problem + "; give its file another name first");
}

}  // namespace

void EncryptInPlace(const Volume& volume, const Entry& entry, const ByteCount& count) {
    RequireShortName(entry.path, true);
    const UniqueHandle folder = volume.Hold(entry.path.Parent());
    const Form plain = FormOf(volume, entry), container = plain.With(kContainerExtension);
    RefuseUnusable(plain);
    HeldFile content(plain);
    const bool isNew = !container.IsThere();
    if (isNew)
        WriteContainer(plain, container, content, count);
    RequireOneContent(plain, container, content, isNew, container, count);
    content.DeleteFor(container);
}

void DecryptInPlace(const Volume& volume, const Entry& entry, const ByteCount& count) {
    const UniqueHandle folder = volume.Hold(entry.path.Parent());
    const Form container = FormOf(volume, entry), plain = container.Without(kContainerExtension);
    RefuseUnusable(plain);
    HeldFile held(container);
    const bool isNew = !plain.IsThere();
    if (isNew)
        WritePlain(plain, container, held, count);
    HeldFile content(plain);
    RequireOneContent(plain, container, content, isNew, plain, count);
    content.TakeTimesOf(container);
    held.DeleteFor(plain);
}
