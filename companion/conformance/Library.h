// A companion library, called as the volume calls it. What it throws passes on; the exception of another compiler is a
// CQuelcryptErrorException by then.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <windows.h>

#include "companion/conformance/Report.h"
#include "library/Owners.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace conformance {

using Path = std::filesystem::path;

// What a box configuration says of a folder; all empty when there is none.
struct Box {
    bool isAnswered = false;
    std::string policy, keyId, ownerId;
    bool operator==(const Box&) const = default;
};

// The last write, the last access and the creation.
using Times = std::array<SYSTEMTIME, 3>;

// A plain file, as a writer is told of it.
struct Document {
    std::wstring name;
    std::string content;
    std::uint32_t attributes = FILE_ATTRIBUTE_ARCHIVE;
    Times times{{{2024, 5, 3, 1, 12, 30, 14, 0}, {2024, 6, 0, 2, 1, 2, 4, 0}, {2020, 2, 6, 29, 23, 59, 58, 0}}};
    Path source = L"C:\\conformance source.txt";
};

// What a container says of its content.
struct Information {
    std::wstring name;
    std::uint64_t size = 0;
    Times times{};
};

class Library {
public:
    // Loads it and reports whether it exports what it must; IsUsable() says so as well.
    Library(Report& report, const Path& dll);
    ~Library() { Unload(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    bool IsUsable() const { return m_isUsable; }
    bool Unload();

    Box AskBox(const Path& folder) const;
    // "name|path" of each, a line each.
    std::string ListFolders() const;

    // Nothing when it does not answer 1. The second form has the entry on disk looked up.
    std::optional<Information> Inform(const Path& container, const WIN32_FIND_DATAW& rawEntry) const;
    std::optional<Information> Inform(const Path& container) const;

    std::string Read(const Path& container) const;
    // Nothing when the library refuses: with null, or an exception of its family.
    std::optional<std::string> ReadUnlessRefused(const Path& container) const;

    void Save(const Path& container, const Document& document) const;
    bool RefusesToSave(const Path& container, const Document& document) const;

    decltype(&Quelcrypt_Initialize) Initialize = nullptr;
    decltype(&Quelcrypt_Uninitialize) Uninitialize = nullptr;
    decltype(&Quelcrypt_GetFileLogger) GetFileLogger = nullptr;
    decltype(&Quelcrypt_GetLoggerComponentIndex) GetLoggerComponentIndex = nullptr;
    decltype(&Quelcrypt_GetQuelcryptConfig) GetQuelcryptConfig = nullptr;
    decltype(&Quelcrypt_GetHalvaneBoxConfig) GetHalvaneBoxConfig = nullptr;
    decltype(&Quelcrypt_GetProtectedFolderEnum) GetProtectedFolderEnum = nullptr;
    decltype(&Quelcrypt_GetFileInformation) GetFileInformation = nullptr;
    decltype(&Quelcrypt_FileReaderFactory) FileReaderFactory = nullptr;
    decltype(&Quelcrypt_FileWriterFactory) FileWriterFactory = nullptr;

private:
    HMODULE m_module = nullptr;
    bool m_isUsable = false;
};

// A string that is handed in. Once the call is over it says something else; the library is neither to release nor to destroy it.
class HandedIn final : public IHvcStringW {
public:
    explicit HandedIn(std::wstring text) : m_text(std::move(text)) {}
    ~HandedIn() = default;
    void* Destroy(std::uint32_t) override { return m_isTaken = true, this; }
    void Release() override { m_isTaken = true; }
    const wchar_t* GetString() override { return m_text.empty() ? nullptr : m_text.c_str(); }
    void CallIsOver() { m_text.assign(m_text.size(), L'#'); }
    bool IsTaken() const { return m_isTaken; }

private:
    std::wstring m_text;
    bool m_isTaken = false;
};

// A writer on its way, which is released with this.
class Saving {
public:
    Saving(const Library& library, const Path& container, const Document& document);
    bool HasWriter() const { return static_cast<bool>(m_writer); }
    // In pieces as the volume hands them over. False: the library refused one.
    bool Write(std::string_view content);
    bool Finish();

private:
    std::array<HandedIn, 3> m_strings;  // outlive the writer
    LibraryPtr<IFileWriter> m_writer;
};

}  // namespace conformance
