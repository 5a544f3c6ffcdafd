// What becomes of edits that cannot be saved in their place: the names they get, and the user who is asked for a folder.
#pragma once

#include <algorithm>
#include <atomic>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>

#include <windows.h>

// "a.txt" -> "a (HalvaneCloud conflicted edit 2024-05-01).txt", with " (2)" for number 2. what: "conflicted", "backup".
inline std::wstring EditName(const std::wstring& name, const wchar_t* what, int number = 1) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    wchar_t suffix[80];
    swprintf(suffix, std::size(suffix), L" (HalvaneCloud %ls edit %04d-%02d-%02d)", what, now.wYear, now.wMonth, now.wDay);
    const std::size_t dot = std::min(name.rfind(L'.'), name.size());
    return name.substr(0, dot) + suffix + (number > 1 ? L" (" + std::to_wstring(number) + L")" : L"") + name.substr(dot);
}
inline std::wstring ConflictName(const std::wstring& name, int number = 1) { return EditName(name, L"conflicted", number); }
inline std::wstring BackupName(const std::wstring& name, int number = 1) { return EditName(name, L"backup", number); }

// The user before whom the folder prompt appears. Answers each at once, for as long as the object lives.
class PromptedUser {
public:
    PromptedUser() : m_thread([this] { Watch(); }) {}
    ~PromptedUser() {
        m_leaves = true;
        m_thread.join();
    }
    PromptedUser(const PromptedUser&) = delete;
    PromptedUser& operator=(const PromptedUser&) = delete;

    // From now on picks this folder; empty: cancels, as at first.
    void Picks(const std::wstring& folder) {
        const std::lock_guard guard(m_mutex);
        m_folder = folder;
    }
    int Prompts() const { return m_prompts; }
    // The texts of the prompt answered last, each followed by "|".
    std::wstring LastPrompt() const {
        const std::lock_guard guard(m_mutex);
        return m_text;
    }

private:
    void Watch() {
        while (!m_leaves) {
            // Every one on the desktop is looked at: tests that run beside this one have prompts too.
            for (HWND dialog = nullptr; (dialog = FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr;) {
                DWORD process = 0;
                if (GetWindowThreadProcessId(dialog, &process) && process == GetCurrentProcessId() && IsWindowVisible(dialog)) {
                    Answer(dialog);
                    break;
                }
            }
            Sleep(20);
        }
    }
    void Answer(HWND dialog) {
        constexpr UINT setSelection = WM_USER + 103;
        std::wstring folder;
        {
            const std::lock_guard guard(m_mutex);
            folder = m_folder;
            m_text.clear();
            EnumChildWindows(dialog, &PromptedUser::AddText, reinterpret_cast<LPARAM>(&m_text));
        }
        // A prompt that has just appeared may not know its folders yet.
        for (int attempt = 0; !folder.empty() && attempt < 100 && !Shows(dialog, folder); ++attempt) {
            Sleep(20);
            SendMessageW(dialog, setSelection, TRUE, reinterpret_cast<LPARAM>(folder.c_str()));
        }
        ++m_prompts;
        // One that is still being made may not listen yet.
        for (; IsWindow(dialog); Sleep(5))
            SendMessageW(dialog, WM_COMMAND, folder.empty() ? IDCANCEL : IDOK, 0);
    }
    static bool Shows(HWND dialog, const std::wstring& folder) {
        std::wstring text = L"|";
        EnumChildWindows(dialog, &PromptedUser::AddText, reinterpret_cast<LPARAM>(&text));
        return text.find(L"|" + std::filesystem::path(folder).filename().wstring() + L"|") != std::wstring::npos;
    }
    static BOOL CALLBACK AddText(HWND window, LPARAM text) {
        wchar_t buffer[512]{};
        SendMessageW(window, WM_GETTEXT, std::size(buffer), reinterpret_cast<LPARAM>(buffer));
        *reinterpret_cast<std::wstring*>(text) += std::wstring(buffer) + L"|";
        return TRUE;
    }

    mutable std::mutex m_mutex;
    std::wstring m_folder;
    std::wstring m_text;
    std::atomic<int> m_prompts{0};
    std::atomic<bool> m_leaves{false};
    std::thread m_thread;  // last: it uses the others
};
