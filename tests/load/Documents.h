// Documents that tell what they are: each content names its document and its version and fills its file with one letter of
// that version, so that a mixture, a part or a foreign content shows. killed.py knows the same.
#pragma once

#include <cstdio>
#include <string>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

// Of the places of documents the last has no policy: what is written there stands where it is written.
constexpr int kPlaces = 4;
constexpr int kPlainPlace = 3;
inline std::wstring DocumentPath(int document, int place) {
    static const wchar_t* const places[] = {L"Docs\\", L"Docs\\sub\\", L"Other\\", L"Plain\\"};
    return places[place] + (L"d" + std::to_wstring(document)) + L".txt";
}

inline std::string Version(int document, int version) {
    const std::string head = "document " + std::to_string(document) + " version " + std::to_string(version) + ";";
    return head + std::string(static_cast<std::size_t>(1000 + version * 7919 % 90'000), static_cast<char>('a' + version % 26)) +
           ".";
}

// -1 when the content names no document.
inline int DocumentOf(const std::string& content) {
    int document = -1;
    return std::sscanf(content.c_str(), "document %d ", &document) == 1 ? document : -1;
}

// The version that a content is, -1 when it is none whole.
inline int VersionOf(const std::string& content) {
    int document = -1;
    int version = -1;
    if (std::sscanf(content.c_str(), "document %d version %d;", &document, &version) != 2 || version < 0)
        return -1;
    return content == Version(document, version) ? version : -1;
}

// Null when it is refused.
inline void* OpenDocument(IVirtualVolume* volume, const std::wstring& path, std::uint32_t access, std::uint32_t disposition = OPEN_EXISTING,
                          const wchar_t* token = nullptr) {
    void* hFile = nullptr;
    constexpr std::uint32_t kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    volume->OpenFile(&hFile, path.c_str(), access, kShareAll, disposition, token, nullptr);
    return hFile;
}

// Whether the volume took all of it.
inline bool Replace(IVirtualVolume* volume, void* hFile, const std::string& content) {
    std::uint32_t done = 0;
    return volume->SetFileSize(hFile, content.size(), nullptr) == VVS_Success &&
           volume->WriteFile(hFile, 0, content.data(), static_cast<std::uint32_t>(content.size()), &done, nullptr) == VVS_Success &&
           done == content.size();
}
