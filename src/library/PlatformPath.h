// A path in a form that the platform's file functions take at any length: from 248 units on, the lowest of their limits, with
// the prefix of the long form ("Maximum Path Length Limitation"). Used only where a path is passed to the platform.
#pragma once

#include <string>
#include <string_view>

class PlatformPath {
public:
    // path is absolute; a short or prefixed one is used unchanged. It must outlive this object.
    explicit PlatformPath(const std::wstring& path);
    explicit PlatformPath(const wchar_t* path);
    const wchar_t* c_str() const { return m_long.empty() ? m_path : m_long.c_str(); }

private:
    const wchar_t* m_path;
    std::wstring m_long;
};
