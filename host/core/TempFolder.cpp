#include "core/TempFolder.h"

#include <algorithm>
#include <set>

#include "common/TrackingText.h"
#include "companion/PrivateRights.h"
#include "core/Environment.h"
#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/Patience.h"
#include "core/Text.h"

namespace fs = std::filesystem;

namespace {

constexpr std::wstring_view kPrefix = L"quelvol-";
constexpr const wchar_t* kRuns = L"quelvol";  // in the user's local application data
constexpr const wchar_t* kMark = L"in-use";

// A tracking file "<temp file>.hvf" is beside every copy that may hold an edit.
bool HoldEdit(const std::vector<std::wstring>& names) {
    return std::any_of(names.begin(), names.end(), [](const std::wstring& name) { return EndsWithNoCase(name, kTrackingExtension); });
}

bool HoldsEdit(const fs::path& run) {
    for (const std::wstring& copy : NamesIn((run / kCopiesFolderName).native()))
        if (HoldEdit(NamesIn((run / kCopiesFolderName / copy).native())))
            return true;
    return false;
}

// Deletes all copies of a run that has ended except edits, and the folder and its mark when nothing is left.
void RemoveCopies(const fs::path& run) {
    UniqueHandle mark = OpenRunMark(run, OPEN_EXISTING);
    if (!mark)  // in use, not a run's folder, or a link
        return;
    bool whole = true;
    for (const std::wstring& name : NamesIn(run.native()))
        if (name != kMark)
            whole = !EndsWithNoCase(name, kTrackingExtension) && RemoveItself((run / name).native(), HoldEdit) && whole;
    mark.Reset();
    if (whole)
        RemoveItself(run.native(), HoldEdit);
}

// Makes a folder that only this user may look into.
bool CreatePrivateFolder(const std::wstring& path) {
    static companion::PrivateRights s_rights(companion::PrivateRights::For::Folder);
    return CreateDirectoryW(path.c_str(), s_rights.Get());
}

// In the local application data, or elsewhere if there is no such folder.
fs::path FolderOfRuns() {
    const std::wstring localData = GetVariable(L"LOCALAPPDATA");
    return localData.empty() ? UserTempFolder() : fs::path(localData) / kRuns;
}

}  // namespace

UniqueHandle OpenRunMark(const fs::path& folder, DWORD disposition) {
    return OpenItself((folder / kMark).native(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, disposition);
}

fs::path UserTempFolder() {
    static const fs::path s_folder = [] {
        wchar_t base[MAX_PATH + 2];
        const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(base)), base);
        if (length >= std::size(base))  // then nothing is stored in base
            throw HostError("the temp folder: its path is too long");
        if (length == 0)
            throw HostError("the temp folder: " + SystemMessage(GetLastError()));
        return fs::path(base).parent_path();  // without the separator at its end
    }();
    return s_folder;
}

std::vector<fs::path> RunFolders() {
    std::vector<fs::path> runs;
    for (const fs::path& folder : std::set{UserTempFolder(), FolderOfRuns()})
        if (const std::wstring real = RealPath(folder.native()); !real.empty())
            for (const std::wstring& name : NamesIn(real))
                if (name.starts_with(kPrefix))
                    runs.push_back(fs::path(real) / name);
    return runs;
}

TempFolder::TempFolder() : m_originalTmp(GetVariable(L"TMP")), m_originalTemp(GetVariable(L"TEMP")) {
    for (const fs::path& run : RunFolders())
        RemoveCopies(run);
    const fs::path folder = FolderOfRuns();
    if (!CreatePrivateFolder(folder.native()) && GetLastError() != ERROR_ALREADY_EXISTS)
        throw LocalError(folder.native(), GetLastError());
    m_path = folder / (std::wstring(kPrefix) + UniqueSuffix());
    if (!CreatePrivateFolder(m_path.native()) || (m_realPath = RealPath(m_path.native())).empty() ||
        !(m_mark = OpenRunMark(m_realPath, CREATE_NEW)))
        throw LocalError(m_path.native(), GetLastError());
    UseOwn();
}

TempFolder::~TempFolder() {
    UseOriginal();
    m_mark.Reset();
    // Another run that starts at this moment may be deleting it too, and make this fail.
    const auto remove = [this] {
        RemoveCopies(m_realPath);
        return HoldsEdit(m_realPath) || StandingAt(m_realPath.native()) == Standing::Nothing;
    };
    const bool isDone = TryForAMoment(remove, Patience::Always);
    if (isDone && StandingAt(m_realPath.native()) == Standing::Nothing)
        return;
    if (HoldsEdit(m_realPath))
        PrintError("quelvol: an edit that could not be saved is kept below " + ToUtf8(m_path.native()) + "; 'quelvol recover' shows it\n");
    else
        PrintError("quelvol: decrypted copies may be left below " + ToUtf8(m_path.native()) + "\n");
}

void TempFolder::ForgetCopies() const {
    for (const std::wstring& name : NamesIn((m_realPath / kCopiesFolderName).native()))
        if (const fs::path copy = m_realPath / kCopiesFolderName / name; !NamesIn(copy.native()).empty())  // an empty one was just made
            RemoveItself(copy.native(), HoldEdit);
}

bool TempFolder::HasRoomFor(std::uint64_t bytes) const {
    if (HasRoom(m_realPath.native(), bytes))
        return true;
    ForgetCopies();
    return HasRoom(m_realPath.native(), bytes);
}

void TempFolder::UseOwn() const {
    SetVariable(L"TMP", m_path.native());
    SetVariable(L"TEMP", m_path.native());
}

void TempFolder::UseOriginal() const {
    SetVariable(L"TMP", m_originalTmp);
    SetVariable(L"TEMP", m_originalTemp);
}
