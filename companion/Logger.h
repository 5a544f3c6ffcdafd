// The log: one file that every process appends to, or standard error. A line is written with one call, which Windows
// keeps whole between processes; within this one a mutex does. Any thread may log; logging never throws and never changes
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

// A line of this library's own, with time, thread and level. Never content, never a password.
void LogLine(LogLevel level, const std::wstring& text) noexcept;

// For what whoever runs the program must learn even without a log: also on standard error and at a debugger.
void ReportProblem(const std::wstring& text) noexcept;

}  // namespace companion
