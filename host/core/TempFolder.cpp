#include "core/TempFolder.h"

#include "core/Environment.h"
#include "core/HostError.h"
#include "core/Text.h"

namespace fs = std::filesystem;

namespace {

constexpr std::wstring_view c_prefix = L"quelvol-";
constexpr const wchar_t* c_mark = L"in-use";

// The volume keeps a tracking file "<temp file>.hvf" beside a decrypted copy until the copy is saved or unchanged.
bool HoldsUnsavedEdit(const fs::path& folder) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder))
        if (EqualNoCase(entry.path().extension().native(), L".hvf"))
            return true;
    return false;
}

// False when something of it stays.
bool Remove(const fs::path& folder) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return !fs::exists(folder, ignored);
}

void RemoveWhatKilledRunsLeft(const fs::path& base) {
    for (const fs::directory_entry& entry : fs::directory_iterator(base)) {
        if (!IsRunFolder(entry.path()))
            continue;
        const HANDLE mark = OpenRunMark(entry.path(), OPEN_EXISTING);
        if (mark == INVALID_HANDLE_VALUE)  // in use, or no run's folder
            continue;
        CloseHandle(mark);
        if (!HoldsUnsavedEdit(entry.path()))
            Remove(entry.path());
    }
}

}  // namespace

bool IsRunFolder(const fs::path& folder) {
    return folder.filename().native().starts_with(c_prefix);
}

HANDLE OpenRunMark(const fs::path& folder, DWORD disposition) {
    return CreateFileW((folder / c_mark).c_str(), GENERIC_WRITE, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

fs::path UserTempFolder() {
    wchar_t base[MAX_PATH + 2];
    const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(base)), base);
    if (length >= std::size(base))  // it is then not stored at all
        throw HostError("the temp folder: its path is too long");
    if (length == 0)
        throw HostError("the temp folder: " + SystemMessage(GetLastError()));
    const fs::path folder = fs::path(base).parent_path();  // without the separator at its end
    return IsRunFolder(folder) ? folder.parent_path() : folder;
}

TempFolder::TempFolder() : m_originalTmp(GetVariable(L"TMP")), m_originalTemp(GetVariable(L"TEMP")) {
    const fs::path base = UserTempFolder();
    try {
        RemoveWhatKilledRunsLeft(base);
    } catch (const fs::filesystem_error&) {  // another run may be at it, too
    }
    m_path = base / (std::wstring(c_prefix) + UniqueSuffix());
    if (!CreateDirectoryW(m_path.c_str(), nullptr) || (m_mark = OpenRunMark(m_path, CREATE_NEW)) == INVALID_HANDLE_VALUE)
        throw LocalError(m_path.native(), GetLastError());
    UseOwn();
}

TempFolder::~TempFolder() {
    UseOriginal();
    bool unsaved = true;
    try {
        unsaved = HoldsUnsavedEdit(m_path);
    } catch (const fs::filesystem_error&) {  // then it is kept as well
    }
    CloseHandle(m_mark);
    if (unsaved)
        PrintError("quelvol: an edit that could not be saved is kept below " + ToUtf8(m_path.native()) + "; 'quelvol recover' shows it\n");
    else if (!Remove(m_path))
        PrintError("quelvol: decrypted copies may be left below " + ToUtf8(m_path.native()) + "\n");
}

void TempFolder::ForgetCopies() const {
    std::error_code error;
    for (fs::directory_iterator folder(m_path / c_copiesFolder, error), end; !error && folder != end; folder.increment(error))
        if (!HoldsUnsavedEdit(folder->path()))
            Remove(folder->path());
}

void TempFolder::UseOwn() const {
    SetVariable(L"TMP", m_path.native());
    SetVariable(L"TEMP", m_path.native());
}

void TempFolder::UseOriginal() const {
    SetVariable(L"TMP", m_originalTmp);
    SetVariable(L"TEMP", m_originalTemp);
}
