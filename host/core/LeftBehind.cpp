#include "core/LeftBehind.h"

#include <algorithm>
#include <cwctype>

#include <windows.h>

#include <tlhelp32.h>

#include "common/Halves.h"
#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/TempFolder.h"
#include "core/Text.h"
#include "core/VolumePath.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kTrackingLimit = 1 << 20;  // bytes; far more than any path needs

FileStamp StampAt(const fs::path& file) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data))
        return {};
    return StampOf(data);
}

FileStamp StampOfItself(const fs::path& file) { return StandingAt(file.native()) == Standing::Itself ? StampAt(file) : FileStamp{}; }

bool IsTrackingFile(const std::wstring& name) { return EndsWithNoCase(name, kTrackingExtension); }

std::optional<TrackingRecord> ReadTracking(const fs::path& file) {
    const UniqueHandle handle = OpenItself(file.native(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    std::string text(kTrackingLimit, '\0');
    DWORD count = 0;
    if (!handle || !ReadFile(handle.Get(), text.data(), static_cast<DWORD>(text.size()), &count, nullptr))
        return std::nullopt;
    text.resize(count);
    return ParseTrackingText(text);
}

// May the container be looked up? A forged tracking file may name a path on another machine, which would learn who this user is; so only
// a path in a mount folder.
bool MayBeAskedFor(const std::wstring& container, IVirtualVolume* volume) {
    const bool isOnDrive = container.size() > 3 && container[1] == L':' && (container[2] == L'\\' || container[2] == L'/');
    VirtMountInfo mount{};
    return isOnDrive || (volume && volume->GetMountInfoByNativePath(container.c_str(), &mount));
}

// FNV-1a of the path: short enough to type, and always the same.
std::string IdOf(const fs::path& file) {
    std::uint32_t hash = 2166136261;
    for (const wchar_t unit : file.native())
        hash = (hash ^ static_cast<std::uint32_t>(std::towlower(unit))) * 16777619;
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08x", static_cast<unsigned>(hash));
    return digits;
}

LeftEdit EditOf(const fs::path& folder, const std::wstring& name, const std::vector<std::wstring>& names, IVirtualVolume* volume) {
    LeftEdit edit;
    const std::wstring fileName = fs::path(name).replace_extension().native();
    edit.file = folder / fileName;
    edit.id = IdOf(edit.file);
    edit.state = StampOfItself(edit.file);
    edit.isGone = std::none_of(names.begin(), names.end(), [&](const std::wstring& other) { return EqualNoCase(other, fileName); });
    edit.tracking = ReadTracking(folder / name);
    if (edit.tracking && edit.tracking->IsSourceKnown() && MayBeAskedFor(edit.tracking->sourceName, volume))
        edit.container = edit.tracking->sourceName;
    return edit;
}

// Has the program the volume loaded? Also true for a program of this user whose modules cannot be listed, such as an elevated one. Other
// users' programs cannot be opened at all ("Process Security and Access Rights").
bool UsesVolume(DWORD processId) {
    const UniqueHandle modules = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, processId));
    if (!modules && GetLastError() == ERROR_ACCESS_DENIED)
        return static_cast<bool>(UniqueHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId)));
    MODULEENTRY32W module{};
    module.dwSize = sizeof(module);
    for (BOOL more = modules && Module32FirstW(modules.Get(), &module); more; more = Module32NextW(modules.Get(), &module))
        if (EqualNoCase(module.szModule, L"QuelcryptVol64.dll"))
            return true;
    return false;
}

// The programs that have the volume loaded and decrypt into the user's temp folder, which quelvol does not.
std::vector<std::string> OtherPrograms() {
    std::vector<std::string> programs;
    const UniqueHandle processes = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process{};
    process.dwSize = sizeof(process);
    for (BOOL more = processes && Process32FirstW(processes.Get(), &process); more; more = Process32NextW(processes.Get(), &process))
        if (!EqualNoCase(process.szExeFile, L"quelvol.exe") && UsesVolume(process.th32ProcessID))
            programs.push_back(ToShown(process.szExeFile) + " (process " + std::to_string(process.th32ProcessID) + ")");
    return programs;
}

}  // namespace

bool LeftEdit::IsContainer() const {
    return tracking && EqualNoCase(file.filename().native(), tracking->fileSpec + std::wstring(kContainerExtension));
}

std::wstring LeftEdit::UploadedName() const {
    if (!tracking || tracking->source != FileStamp{})  // an upload always writes to a new file
        return {};
    return VolumePath::NameBeforeAside(file.filename().native());
}

LeftEdit::Since LeftEdit::ContainerSince() const {
    if (container.empty())
        return Since::Unknown;
    const FileStamp now = StampAt(container);
    if (now == FileStamp{})
        return tracking->source == FileStamp{} ? Since::New : Since::Gone;
    // Other programs change the other attributes ("File Attribute Constants").
    constexpr std::uint32_t usersBits = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    const FileStamp& then = tracking->source;
    const bool isSame = now.writeTime == then.writeTime && now.size == then.size && !((now.attributes ^ then.attributes) & usersBits);
    return isSame ? Since::Same : Since::Changed;
}

LeftBehind::LeftBehind(const fs::path& own) {
    const fs::path base = RealPath(UserTempFolder().native());
    const std::vector<std::string> programs = OtherPrograms();
    if (programs.empty())
        AddCopyFolders(base);
    for (const std::string& program : programs)
        m_inUse.push_back(program + " uses " + ToShown(OrdinaryPath(base / kCopiesFolderName)));
    for (const fs::path& run : RunFolders())
        if (!EqualNoCase(run.filename().native(), own.filename().native()))
            Claim(run);
}

void LeftBehind::Claim(const fs::path& runFolder) {
    UniqueHandle mark = OpenRunMark(runFolder, OPEN_EXISTING);
    if (!mark) {
        if (GetLastError() == ERROR_SHARING_VIOLATION)
            m_inUse.push_back("another run of quelvol uses " + ToShown(OrdinaryPath(runFolder)));
        return;
    }
    m_marks.push_back(std::move(mark));
    AddCopyFolders(runFolder);
}

void LeftBehind::AddCopyFolders(const fs::path& base) {
    for (const std::wstring& name : NamesIn((base / kCopiesFolderName).native()))
        if (name.size() > 3 && EqualNoCase(name.substr(0, 3), L"hvc") && EndsWithNoCase(name, L".tmp"))
            m_copyFolders.push_back(base / kCopiesFolderName / name);
}

std::vector<LeftEdit> LeftBehind::Edits(IVirtualVolume* volume) const {
    std::vector<LeftEdit> edits;
    for (const fs::path& folder : m_copyFolders) {
        const std::vector<std::wstring> names = NamesIn(folder.native());
        for (const std::wstring& name : names)
            if (IsTrackingFile(name))
                edits.push_back(EditOf(folder, name, names, volume));
    }
    std::sort(edits.begin(), edits.end(),
              [](const LeftEdit& left, const LeftEdit& right) { return left.state.writeTime < right.state.writeTime; });
    return edits;
}

std::size_t LeftBehind::DeleteCopies(std::size_t& kept) const {
    std::size_t deleted = 0;
    for (const fs::path& folder : m_copyFolders) {
        const std::vector<std::wstring> names = NamesIn(folder.native());
        if (std::any_of(names.begin(), names.end(), IsTrackingFile))
            continue;
        for (const std::wstring& name : names)
            ++(DeleteItself((folder / name).native()) ? deleted : kept);
        if (!names.empty())  // an empty folder may belong to a program that is starting
            DeleteItself(folder.native());
    }
    return deleted;
}

void DeleteEdit(const LeftEdit& edit) {
    if (edit.state != FileStamp{}) {
        const UniqueHandle file = OpenItself(edit.file.native(), DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, 0);
        if (!file)
            throw LocalError(OrdinaryPath(edit.file), GetLastError());
        const FileStamp now = StampAt(edit.file);
        if (now.writeTime != edit.state.writeTime || now.size != edit.state.size)
            throw HostError(ToShown(OrdinaryPath(edit.file)) + ": it was changed just now, and stays");
        if (!DeleteOpen(file))
            throw LocalError(OrdinaryPath(edit.file), GetLastError());
    } else if (!edit.isGone && !DeleteItself(edit.file.native())) {
        throw LocalError(OrdinaryPath(edit.file), GetLastError());
    }
    const fs::path trackingFile = edit.file.native() + std::wstring(kTrackingExtension);
    if (!DeleteItself(trackingFile.native()))
        throw LocalError(OrdinaryPath(trackingFile), GetLastError());
    DeleteItself(edit.file.parent_path().native());
}
