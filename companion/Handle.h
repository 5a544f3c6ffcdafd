// Owns a file handle.
#pragma once

#include <utility>

#include <windows.h>

namespace companion {

class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle() { Close(); }
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            Close();
            m_handle = std::exchange(other.m_handle, INVALID_HANDLE_VALUE);
        }
        return *this;
    }

    explicit operator bool() const { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return m_handle; }

    // Keeps the last error.
    void Close() {
        if (m_handle == INVALID_HANDLE_VALUE)
            return;
        const DWORD error = GetLastError();
        CloseHandle(std::exchange(m_handle, INVALID_HANDLE_VALUE));
        SetLastError(error);
    }

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

}  // namespace companion
