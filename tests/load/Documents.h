// Documents that tell what they are: each content names its document and its version and fills its file with one letter of
// that version, so that a mixture, a part or a foreign content shows. killed.py knows the same.
#pragma once

#include <cstdio>
#include <string>

inline std::string Version(int document, int version) {
    const std::string head = "document " + std::to_string(document) + " version " + std::to_string(version) + ";";
    return head + std::string(static_cast<std::size_t>(1000 + version * 7919 % 90'000), static_cast<char>('a' + version % 26)) +
           ".";
}

// The version that a content is, -1 when it is none whole, or not of this document.
inline int VersionOf(int document, const std::string& content) {
    int found = -1;
    int version = -1;
    if (std::sscanf(content.c_str(), "document %d version %d;", &found, &version) != 2 || found != document || version < 0)
        return -1;
    return content == Version(document, version) ? version : -1;
}
