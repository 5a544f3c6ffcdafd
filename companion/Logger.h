// The log: one file that every process appends to, or standard error. Lines of several processes do not mix, because each is written
// with one call; a mutex does the same for threads. Any thread may log; logging never throws and never changes
// the last error.
#pragma once

#include <cstdint>
#include <string>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

IFileLogger* Logger() noexcept;
std::uint32_t ComponentIndex(const char* componentName);

// file: full path, "-" for standard error, empty for none. A level of 0 writes nothing. The environment variable
// QUELCRYPT_TRACE set to 1 means standard error and trace level, whatever is asked for here.
void ConfigureLogger(const std::wstring& file, std::uint32_t level) noexcept;
void CloseLogger() noexcept;

// Writes a line of this library, with time, thread and level. Never content, never a password.
void LogLine(LogLevel level, const std::wstring& text) noexcept;

// For problems that the user must see even without a log: also written to standard error and to a debugger.
void ReportProblem(const std::wstring& text) noexcept;

}  // namespace companion
