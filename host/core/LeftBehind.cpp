#include "core/LeftBehind.h"

#include <algorithm>
#include <cwctype>
#include <memory>

#include <windows.h>

#include <tlhelp32.h>

#include "core/HostError.h"
#include "core/TempFolder.h"
#include "core/Text.h"

namespace fs = std::filesystem;

namespace {

constexpr std::wstring_view c_trackingEnd = L".hvf";
constexpr std::wstring_view c_containerEnd = L".zip";
constexpr std::size_t c_trackingLimit = 1 << 20;  // bytes; far more than any path needs

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

Handle OwnHandle(HANDLE handle) {
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

std::uint64_t Number(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32 | low;
}

FileState StateOf(const fs::path& file) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data))
        return {};
    return {data.dwFileAttributes, Number(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime),
            Number(data.nFileSizeHigh, data.nFileSizeLow)};
}

std::vector<fs::path> Children(const fs::path& folder) {
    std::vector<fs::path> children;
    std::error_code error;
    for (fs::directory_iterator child(folder, error), end; !error && child != end; child.increment(error))
        children.push_back(child->path());
    return children;
}

bool IsTrackingFile(const fs::path& file) {
    return EndsWithNoCase(file.native(), c_trackingEnd);
}

std::wstring FromNarrow(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

// A name as a tracking file tells it, which has no more characters than the system's narrow set.
std::wstring AsTracked(std::wstring_view name) {
    const int units = static_cast<int>(name.size());
    std::string narrow(static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, 0, name.data(), units, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_ACP, 0, name.data(), units, narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr);
    return FromNarrow(narrow);
}

std::optional<Tracking> ReadTracking(const fs::path& file) {
    const Handle handle = OwnHandle(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text(c_trackingLimit, '\0');
    DWORD count = 0;
    if (!handle || !ReadFile(handle.get(), text.data(), static_cast<DWORD>(text.size()), &count, nullptr))
        return std::nullopt;
    text.resize(count);
    return ParseTracking(FromNarrow(text));
}

// The name in folder that a tracking file tells as tracked; empty when none or more than one could be meant.
fs::path NameOnDisk(const fs::path& folder, const fs::path& tracked) {
    std::error_code error;
    if (fs::exists(folder / tracked, error))
        return tracked;
    fs::path found;
    for (const fs::path& child : Children(folder)) {
        if (AsTracked(child.filename().native()) != tracked.native())
            continue;
        if (!found.empty())
            return {};
        found = child.filename();
    }
    if (found.empty() && tracked.native().find(L'?') == std::wstring::npos)
        return tracked;  // it is gone
    return found;
}

// The copy has the name of its document, so its name on disk tells the characters that the tracking file could not.
fs::path ContainerOnDisk(const fs::path& tracked, const fs::path& copy) {
    const std::wstring copyName = copy.filename().native();
    fs::path path = tracked.root_path();
    for (const fs::path& folder : tracked.parent_path().relative_path()) {
        const fs::path name = NameOnDisk(path, folder);
        if (name.empty())
            return {};
        path /= name;
    }
    for (const std::wstring& name : {copyName + std::wstring(c_containerEnd), copyName})
        if (AsTracked(name) == tracked.filename().native())
            return path / name;
    const fs::path name = NameOnDisk(path, tracked.filename());
    return name.empty() ? fs::path() : path / name;
}

// FNV-1a: short enough to type, and the same at every look.
std::string IdOf(const fs::path& file) {
    std::uint32_t hash = 2166136261;
    for (const wchar_t unit : file.native())
        hash = (hash ^ static_cast<std::uint32_t>(std::towlower(unit))) * 16777619;
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08x", static_cast<unsigned>(hash));
    return digits;
}

LeftEdit EditOf(const fs::path& trackingFile) {
    LeftEdit edit;
    edit.file = fs::path(trackingFile).replace_extension();
    edit.id = IdOf(edit.file);
    edit.state = StateOf(edit.file);
    edit.tracking = ReadTracking(trackingFile);
    if (edit.tracking)
        edit.container = ContainerOnDisk(edit.tracking->container, edit.file);
    return edit;
}

// Nobody has the file open, and nobody can open it while the handle lives. Empty when somebody has.
Handle OpenAlone(const fs::path& file) {
    const DWORD attributes = GetFileAttributesW(file.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesW(file.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    return OwnHandle(CreateFileW(file.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool DeleteOpen(const Handle& file) {
    FILE_DISPOSITION_INFO disposition{TRUE};
    return SetFileInformationByHandle(file.get(), FileDispositionInfo, &disposition, sizeof(disposition));
}

bool UsesVolume(DWORD processId) {
    const Handle modules = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, processId));
    MODULEENTRY32W module{};
    module.dwSize = sizeof(module);
    for (BOOL more = modules && Module32FirstW(modules.get(), &module); more; more = Module32NextW(modules.get(), &module))
        if (EqualNoCase(module.szModule, L"QuelcryptVol64.dll"))
            return true;
    return false;
}

// The programs that have the volume loaded and decrypt into the user's temp folder: quelvol does not.
std::vector<std::string> OtherPrograms() {
    std::vector<std::string> programs;
    const Handle processes = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process{};
    process.dwSize = sizeof(process);
    for (BOOL more = processes && Process32FirstW(processes.get(), &process); more; more = Process32NextW(processes.get(), &process))
        if (!EqualNoCase(process.szExeFile, L"quelvol.exe") && UsesVolume(process.th32ProcessID))
            programs.push_back(ToUtf8(process.szExeFile) + " (process " + std::to_string(process.th32ProcessID) + ")");
    return programs;
}

}  // namespace

bool LeftEdit::IsContainer() const {
    return tracking && EqualNoCase(file.filename().native(), tracking->name + std::wstring(c_containerEnd));
}

std::wstring LeftEdit::UploadedName() const {
    const std::wstring name = file.filename().native();
    constexpr std::size_t suffixSize = 9;  // "~1a2b3c4d"
    const std::size_t tilde = name.rfind(L'~');
    if (tilde == std::wstring::npos || tilde == 0 || name.size() < tilde + suffixSize)
        return {};
    const std::wstring digits = name.substr(tilde + 1, suffixSize - 1), rest = name.substr(tilde + suffixSize);
    const bool hasDot = name[tilde - 1] == L'.';
    if (digits.find_first_not_of(L"0123456789abcdef") != std::wstring::npos || hasDot != rest.starts_with(L'.'))
        return {};
    return name.substr(0, hasDot ? tilde - 1 : tilde) + rest;
}

LeftEdit::Since LeftEdit::ContainerSince() const {
    if (container.empty())
        return Since::Unknown;
    const FileState now = StateOf(container);
    if (now == FileState{})
        return tracking->containerState == FileState{} ? Since::New : Since::Gone;
    return now == tracking->containerState ? Since::Same : Since::Changed;
}

LeftBehind::LeftBehind(const fs::path& own) {
    const fs::path base = UserTempFolder();
    const std::vector<std::string> programs = OtherPrograms();
    if (programs.empty())
        AddCopyFolders(base);
    for (const std::string& program : programs)
        m_inUse.push_back(program + " uses " + ToUtf8((base / c_copiesFolder).native()));
    for (const fs::path& child : Children(base))
        if (IsRunFolder(child) && !EqualNoCase(child.native(), own.native()))
            Claim(child);
}

LeftBehind::~LeftBehind() {
    for (void* const mark : m_marks)
        CloseHandle(mark);
}

void LeftBehind::Claim(const fs::path& runFolder) {
    const HANDLE mark = OpenRunMark(runFolder, OPEN_EXISTING);
    if (mark == INVALID_HANDLE_VALUE) {
        if (GetLastError() == ERROR_SHARING_VIOLATION)
            m_inUse.push_back("another run of quelvol uses " + ToUtf8(runFolder.native()));
        return;
    }
    m_marks.push_back(mark);
    AddCopyFolders(runFolder);
}

void LeftBehind::AddCopyFolders(const fs::path& base) {
    for (const fs::path& folder : Children(base / c_copiesFolder)) {
        const std::wstring name = folder.filename().native();
        if (name.size() > 3 && EqualNoCase(name.substr(0, 3), L"hvc") && EndsWithNoCase(name, L".tmp"))
            m_copyFolders.push_back(folder);
    }
}

std::vector<LeftEdit> LeftBehind::Edits() const {
    std::vector<LeftEdit> edits;
    for (const fs::path& folder : m_copyFolders)
        for (const fs::path& file : Children(folder))
            if (IsTrackingFile(file))
                edits.push_back(EditOf(file));
    std::sort(edits.begin(), edits.end(),
              [](const LeftEdit& left, const LeftEdit& right) { return left.state.lastWriteTime < right.state.lastWriteTime; });
    return edits;
}

std::size_t LeftBehind::DeleteCopies(std::size_t& kept) const {
    std::size_t deleted = 0;
    for (const fs::path& folder : m_copyFolders) {
        const std::vector<fs::path> files = Children(folder);
        if (std::any_of(files.begin(), files.end(), IsTrackingFile))
            continue;
        for (const fs::path& file : files) {
            const Handle handle = OpenAlone(file);
            ++(handle && DeleteOpen(handle) ? deleted : kept);
        }
        if (!files.empty())  // an empty one may be that of a program which starts now
            RemoveDirectoryW(folder.c_str());
    }
    return deleted;
}

void DeleteEdit(const LeftEdit& edit) {
    if (edit.state != FileState{}) {
        const Handle file = OpenAlone(edit.file);
        if (!file)
            throw LocalError(edit.file.native(), GetLastError());
        const FileState now = StateOf(edit.file);
        if (now.lastWriteTime != edit.state.lastWriteTime || now.size != edit.state.size)
            throw HostError(ToUtf8(edit.file.native()) + ": it was changed just now, and stays");
        if (!DeleteOpen(file))
            throw LocalError(edit.file.native(), GetLastError());
    }
    const fs::path trackingFile = edit.file.native() + std::wstring(c_trackingEnd);
    if (!DeleteFileW(trackingFile.c_str()))
        throw LocalError(trackingFile.native(), GetLastError());
    RemoveDirectoryW(edit.file.parent_path().c_str());
}
