#include "SettingsStore.h"

#include <mutex>
#include <optional>
#include <string>

#include <windows.h>

#include "Boundary.h"
#include "Logger.h"
#include "Paths.h"
#include "SettingsFile.h"
#include "Text.h"
#include "WholeFile.h"
#include "common/Halves.h"

namespace companion {
namespace {

// Compared to find out whether the file was written since it was read.
struct FileStamp {
    std::wstring path;
    DWORD error = 0;  // why its attributes cannot be read; 0 when they can
    std::uint64_t writeTime = 0;
    std::uint64_t sizeBytes = 0;

    bool operator==(const FileStamp&) const = default;
};

std::wstring EnvironmentText(const wchar_t* name) {
    std::wstring value(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        const bool fits = length < value.size();
        value.resize(length);
        if (fits)
            return value;
    }
}

std::wstring PathBesideThisModule(const wchar_t* fileName) {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&PathBesideThisModule), &module);
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return FolderOf(FullPath(path)) + L'\\' + fileName;
        }
        path.resize(path.size() * 2);
    }
}

FileStamp StampOf(const std::wstring& path) {
    FileStamp stamp{path};
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(OpenablePath(path).c_str(), GetFileExInfoStandard, &data)) {
        stamp.error = GetLastError();
        return stamp;
    }
    stamp.writeTime = FileTimeNumber(data.ftLastWriteTime);
    stamp.sizeBytes = Joined(data.nFileSizeHigh, data.nFileSizeLow);
    return stamp;
}

// A second write this soon after the first may leave the same write time and size.
bool IsFresh(const FileStamp& stamp) {
    constexpr std::uint64_t clockStep = 1'000'000;  // 100 ms in FILETIME units
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return FileTimeNumber(now) < stamp.writeTime + clockStep;
}

}  // namespace

std::wstring SettingsPath() {
    const std::wstring chosen = EnvironmentText(L"QUELCRYPT_CONFIG");
    if (!chosen.empty())
        return FullPath(chosen);
    static const std::wstring besideLibrary = PathBesideThisModule(L"quelcrypt.json");
    const std::wstring ofUser = EnvironmentText(L"APPDATA");
    if (ofUser.empty() || GetFileAttributesW(OpenablePath(besideLibrary).c_str()) != INVALID_FILE_ATTRIBUTES)
        return besideLibrary;
    return FullPath(ofUser) + L"\\Quelcrypt\\quelcrypt.json";
}

namespace {

class SettingsStore {
public:
    std::shared_ptr<const SettingsInForce> Current() {
        const std::lock_guard guard(m_mutex);
        const FileStamp stamp = StampOf(SettingsPath());
        if (!m_read || *m_read != stamp || m_readAgain)
            Read(stamp);
        return m_inForce;
    }

private:
    void Read(const FileStamp& stamp) {
        const bool sameStamp = m_read && *m_read == stamp;
        m_read = stamp;
        m_readAgain = stamp.error == 0 && IsFresh(stamp);
        try {
            const Secret text(ReadText(stamp));
            const std::size_t textHash = std::hash<std::string_view>()(text.Text());
            if (sameStamp && textHash == m_textHash)
                return;
            m_textHash = textHash;
            Settings settings = ParseSettings(text.Text(), FolderOf(stamp.path));
            settings.ownPath = stamp.path;
            TakeOver(std::move(settings));
            m_lastProblem.clear();
        } catch (const SettingsError& error) {
            Report(stamp.path + FromUtf8Lossy(error.what()));
        } catch (const CQuelcryptErrorException& error) {
            Report(stamp.path + L": " + error.GetDescription());
        }
    }

    std::string ReadText(const FileStamp& stamp) {
        if (stamp.error != 0)
            FailWithError(L"The file cannot be read", stamp.error);
        try {
            constexpr std::size_t sizeLimit = 16 << 20;
            return ReadWholeFile(stamp.path, sizeLimit);
        } catch (...) {
            // A program that held the file may close it without changing the stamp.
            m_readAgain = true;
            throw;
        }
    }

    void TakeOver(Settings settings) {
        auto next = std::make_shared<SettingsInForce>();
        next->settings = std::move(settings);
        next->changeCounter = m_inForce->changeCounter + 1;
        if (next->changeCounter == 0)
            next->changeCounter = 1;
        m_inForce = std::move(next);
        m_loaded = true;
        ConfigureLogger(m_inForce->settings.logFile, m_inForce->settings.logLevel);
    }

    void Report(const std::wstring& problem) {
        if (problem == m_lastProblem)
            return;
        m_lastProblem = problem;
        ReportProblem(L"Configuration: " + problem + (m_loaded ? L" (what was read before stays in force)" : L" (there are no folders)"));
    }

    std::mutex m_mutex;
    std::optional<FileStamp> m_read;  // of the last attempt
    bool m_readAgain = false;
    std::size_t m_textHash = 0;
    std::wstring m_lastProblem;
    bool m_loaded = false;
    std::shared_ptr<const SettingsInForce> m_inForce = std::make_shared<SettingsInForce>(SettingsInForce{{}, 1});
};

}  // namespace

std::shared_ptr<const SettingsInForce> CurrentSettings() {
    static SettingsStore store;
    return store.Current();
}

}  // namespace companion
