// The exception of this program, with the line to print and the exit code.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "quelcrypt/IVirtualVolume.h"

enum ExitCode {
    Exit_Success = 0,
    Exit_Failed = 1,
    Exit_Usage = 2,
    Exit_NoVolume = 3,
    Exit_CommandNotStarted = 127,
    Exit_Interrupted = 130,
};

class HostError : public std::runtime_error {
public:
    explicit HostError(const std::string& text, int exitCode = Exit_Failed) : std::runtime_error(text), m_exitCode(exitCode) {}
    int Code() const { return m_exitCode; }

private:
    int m_exitCode;
};

// The command line makes no sense.
class UsageError : public HostError {
public:
    explicit UsageError(const std::string& text) : HostError(text, Exit_Usage) {}
};

// The volume refused: "PATH: VVS_FileNotFound (no such file)".
class StatusError : public HostError {
public:
    StatusError(std::string_view shownPath, VirtualVolumeStatus status);
    VirtualVolumeStatus Status() const { return m_status; }

private:
    VirtualVolumeStatus m_status;
};

// "VVS_FileNotFound (no such file)"; for an unknown number "status 99 (unknown)".
std::string StatusText(VirtualVolumeStatus status);

// The platform's words for a Win32 error, on one line.
std::string SystemMessage(unsigned long error);
// A local file could not be used: "PATH: what the platform says".
HostError LocalError(std::wstring_view localPath, unsigned long error);
