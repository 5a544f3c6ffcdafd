// Containers as the companion library writes and reads them.
#pragma once

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <windows.h>

#include <gtest/gtest.h>

#include "quelcrypt/QuelcryptExceptions.h"

template <class Interface>
struct Releaser {
    void operator()(Interface* owned) const { owned->Release(); }
};
template <class Interface>
using Owned = std::unique_ptr<Interface, Releaser<Interface>>;

// What a writer is told of the plain file, and a listing shows.
struct PlainFile {
    std::wstring name = L"a.txt";
    std::filesystem::path source = {};
    std::uint32_t attributes = FILE_ATTRIBUTE_ARCHIVE;
    // Of the last write, the last access and the creation.
    std::array<SYSTEMTIME, 3> times{{{2024, 5, 3, 1, 12, 30, 14, 0}, {2024, 6, 0, 2, 1, 2, 3, 0}, {2020, 2, 6, 29, 23, 59, 59, 0}}};
    std::uint64_t size = 0;
};

inline Owned<IFileWriter> Writer(const std::filesystem::path& container, const PlainFile& plain = {}) {
    CHvcStringWImpl path(container.c_str()), name(plain.name.c_str()), source(plain.source.c_str());
    const auto& [lastWrite, lastAccess, creation] = plain.times;
    return Owned<IFileWriter>(
        Quelcrypt_FileWriterFactory(&path, &name, &source, plain.attributes, &lastWrite, &lastAccess, &creation, 2, 32768, nullptr));
}

inline bool WriteAll(IFileWriter& writer, std::string_view content) {
    bool isWritten = true;
    for (std::size_t at = 0; at < content.size() && isWritten; at += 32768)
        isWritten = writer.Write(&content[at], static_cast<std::uint32_t>(std::min<std::size_t>(32768, content.size() - at)));
    return isWritten;
}

inline void Encrypt(const std::filesystem::path& container, std::string_view content, const PlainFile& plain = {}) {
    const auto writer = Writer(container, plain);
    ASSERT_TRUE(writer) << container;
    EXPECT_TRUE(WriteAll(*writer, content) && writer->Finish(true)) << container;
}

inline Owned<IFileReader> Reader(const std::filesystem::path& container) {
    CHvcStringWImpl path(container.c_str());
    return Owned<IFileReader>(Quelcrypt_FileReaderFactory(&path));
}

// Throws what the library throws.
inline std::string Decrypt(const std::filesystem::path& container) {
    const auto reader = Reader(container);
    if (!reader)
        throw CQuelcryptErrorException(L"no reader");
    std::string content;
    while (reader->Advance())
        content.append(static_cast<const char*>(reader->GetData()), reader->GetDataLength());
    return content;
}
