// Programs of the system that runs Wine, started from a test. They run beside Wine, which hands out no process to wait for:
// who starts one waits for what it does. On Windows itself there are none.
#pragma once

#include <filesystem>
#include <string>

#include <windows.h>

// The path as that system knows it; empty on Windows.
inline std::wstring HostPath(const std::filesystem::path& path) {
    using ToHostPath = char*(CDECL*)(const wchar_t*);
    const auto toHostPath = reinterpret_cast<ToHostPath>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    const char* const text = toHostPath ? toHostPath(path.c_str()) : nullptr;
    return text ? std::wstring(text, text + std::char_traits<char>::length(text)) : std::wstring();
}

// Its output goes nowhere. Whether it was started.
inline bool StartHostProgram(std::wstring commandLine) {
    const HANDLE nowhere = CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    SetHandleInformation(nowhere, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = nowhere;
    PROCESS_INFORMATION process = {};
    const bool started =
        CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process) != FALSE;
    CloseHandle(nowhere);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return started;
}
