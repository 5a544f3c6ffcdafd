// Environment variables of this process, for the DLLs that it loads and the programs that it starts.
#pragma once

#include <cstdlib>
#include <string>

#include <windows.h>

// Empty when it is not set.
inline std::wstring GetVariable(const wchar_t* name) {
    std::wstring value(32'767, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

// Sets the platform's copy and the C library's; an empty value removes the variable.
inline void SetVariable(const wchar_t* name, const std::wstring& value) { _wputenv_s(name, value.c_str()); }
