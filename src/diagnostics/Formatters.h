// The texts of values in trace lines. Each function returns a new text and fails only when there is not enough memory. Stateless; any
// thread.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

// A printf-style wide format of the platform: %s is wide text, %I64d a 64-bit number. Arguments are scalars, pointers and
// wide texts only; a null text shows as "<NULL>".
std::wstring FormatArgs(const wchar_t* format, ...);

template <class Value>
concept Arithmetic = std::is_arithmetic_v<Value>;

inline const wchar_t* AsFormatArg(const wchar_t* text) { return text ? text : L"<NULL>"; }
inline const wchar_t* AsFormatArg(const std::wstring& text) { return text.c_str(); }
template <Arithmetic Value>
Value AsFormatArg(Value value) {
    return value;
}
template <class Object>
const void* AsFormatArg(Object* object) {
    return object;
}

inline std::wstring FormatStr() { return {}; }
template <class... Args>
std::wstring FormatStr(const wchar_t* format, const Args&... args) {
    return FormatArgs(format, AsFormatArg(args)...);
}

// Flag sets: names joined by "|", the whole value in hexadecimal, and the flags without a name. The name with the most flags is preferred.
std::wstring FormatAccessMaskStr(std::uint32_t access);
std::wstring FormatShareModeStr(std::uint32_t shareMode);
std::wstring FormatFileAttributesStr(std::uint32_t attributes);

// Enumerations by name; the comment says what an unknown value shows.
std::wstring FormatCreationDispositionStr(std::uint32_t disposition);  // "<Unknown>"
std::wstring FormatItemTypeStr(std::uint32_t type);                    // empty
std::wstring FormatFolderTypeStr(std::uint32_t type);                  // empty
std::wstring FormatLockScopeStr(std::uint32_t scope);                  // "<Invalid>"
std::wstring FormatLockTypeStr(std::uint32_t type);                    // "<Invalid>"
std::wstring FormatStatusStr(std::uint32_t status);                    // "<Unknown:n>"
std::wstring FormatHResultStr(HRESULT result);                         // 16 hexadecimal digits after "0x"

std::wstring FormatHexStr(std::uint64_t value, bool is64Bit, bool prefix);
std::wstring FormatInt64Str(std::int64_t value);
std::wstring FormatBoolStr(bool value);
std::wstring FormatGuidStr(const GUID& guid);  // registry form, 38 units with the braces

// layout follows strftime. A year below 1900 shows as the zero time.
std::wstring FormatTimeStr(const SYSTEMTIME& time, const wchar_t* layout);
// "05/01/24 10:20:30", without the year "05/01 10:20:30"; milliseconds, when asked for, follow unpadded (".7").
std::wstring FormatSystemTimeStr(const SYSTEMTIME& time, bool year = true, bool milliseconds = false);
std::wstring FormatFileTimeStr(std::uint64_t fileTime);

// Records; null shows as "<NULL>". Fixed buffers are not read beyond their size: a host may have left out the terminator.
std::wstring FormatFindDataStr(const VirtFindData* findData);
std::wstring FormatRawFindDataStr(const WIN32_FIND_DATAW* findData);
std::wstring FormatMountInfoStr(std::uint32_t type, const wchar_t* name, const wchar_t* path);
std::wstring FormatLockInfoStr(const LockInfo* lockInfo);
