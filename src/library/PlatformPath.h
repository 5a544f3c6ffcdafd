// A path in a form that the platform's file functions take at any length: from 248 units on, the shorter of their limits, with
// the prefix of the long form ("Maximum Path Length Limitation"). Made where a path is handed to the platform, nowhere else.
#pragma once

#include <string>
#include <string_view>

class PlatformPath {
public:
    // Absolute; shorter or prefixed ones are taken as they are. The text must outlive this.
    explicit PlatformPath(const std::wstring& path);
    explicit PlatformPath(const wchar_t* path);
    const wchar_t* c_str() const { return m_long.empty() ? m_path : m_long.c_str(); }

private:
    const wchar_t* m_path;
    std::wstring m_long;
};
