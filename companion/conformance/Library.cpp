#include "companion/conformance/Library.h"

#include <algorithm>

#include "library/PlatformPath.h"
#include "library/Text.h"

namespace conformance {
namespace {

constexpr std::uint32_t kTextBytes = 120;  // of the buffer for a text of a box configuration
constexpr std::uint32_t kChunkBytes = 32768;
constexpr std::int32_t kWriterMode = 2;
constexpr int kMostFolders = 100'000;  // more is taken for an enumeration without an end

std::string Utf8(const Path& path) { return Utf8EncodeStr(path.c_str(), static_cast<DWORD>(path.native().size())); }

std::string TextOf(IHalvaneBoxConfig& config, std::uint32_t (IHalvaneBoxConfig::*getter)(char*, std::uint32_t)) {
    std::string buffer(kTextBytes + 64, '#');
    const std::uint32_t length = CallCompanion([&] { return (config.*getter)(buffer.data(), kTextBytes); });
    Must(length <= kTextBytes, "of 120 bytes it says that it filled " + std::to_string(length));
    Must(buffer.find_first_not_of('#', kTextBytes) == buffer.npos, "it wrote beyond the 120 bytes of the buffer");
    const std::string text = buffer.substr(0, length);
    Utf8DecodeStr(text);
    return text;
}

// Empty when there is none.
std::string TextOf(IProtectedFolder& folder, bool (IProtectedFolder::*getter)(IQuelcryptText**)) {
    LibraryPtr<IQuelcryptText> text;
    IQuelcryptText** const place = text.GetAddr();
    if (!CallCompanion([&] { return (folder.*getter)(place); }) || !text || !CallCompanion([&] { return text->HasText(0); }))
        return {};
    const char* const utf8 = CallCompanion([&] { return text->GetText(0); });
    Must(utf8 != nullptr, "a folder's text is null, although HasText says that there is one");
    Utf8DecodeStr(utf8);
    return utf8;
}

}  // namespace

Library::Library(Report& report, const Path& dll) {
    report.Require("is a 64-bit library that can be loaded", [&] {
        m_module = LoadLibraryExW(dll.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        Must(m_module != nullptr, "LoadLibrary failed with error " + std::to_string(GetLastError()));
    });
    if (!m_module)
        return;
    m_isUsable = true;
    const auto take = [&](auto& function, const std::string& name) {
        report.Require("exports " + name, [&] {
            const FARPROC found = GetProcAddress(m_module, name.c_str());
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(reinterpret_cast<void*>(found));
            m_isUsable = m_isUsable && found;
            Must(found != nullptr, "there is no export of this name");
        });
    };
    take(Initialize, "Quelcrypt_Initialize");
    take(Uninitialize, "Quelcrypt_Uninitialize");
    take(GetFileLogger, "Quelcrypt_GetFileLogger");
    take(GetLoggerComponentIndex, "Quelcrypt_GetLoggerComponentIndex");
    take(GetQuelcryptConfig, "Quelcrypt_GetQuelcryptConfig");
    take(GetHalvaneBoxConfig, "Quelcrypt_GetHalvaneBoxConfig");
    take(GetProtectedFolderEnum, "Quelcrypt_GetProtectedFolderEnum");
    take(GetFileInformation, "Quelcrypt_GetFileInformation");
    take(FileReaderFactory, "Quelcrypt_FileReaderFactory");
    take(FileWriterFactory, "Quelcrypt_FileWriterFactory");
}

bool Library::Unload() {
    m_isUsable = false;
    return !m_module || FreeLibrary(std::exchange(m_module, nullptr));
}

Box Library::AskBox(const Path& folder) const {
    LibraryPtr<IHalvaneBoxConfig> config;
    IHalvaneBoxConfig** const place = config.GetAddr();
    const std::string path = Utf8(folder);
    Box box;
    box.isAnswered = CallCompanion([&] { return GetHalvaneBoxConfig(path.c_str(), place, nullptr, nullptr); }) != 0;
    if (config) {
        box.policy = TextOf(*config.Get(), &IHalvaneBoxConfig::GetPolicy);
        box.keyId = TextOf(*config.Get(), &IHalvaneBoxConfig::GetTargetKeyId);
        box.ownerId = TextOf(*config.Get(), &IHalvaneBoxConfig::GetOwnerId);
    }
    return box;
}

std::string Library::ListFolders() const {
    LibraryPtr<IProtectedFolderEnum> folders;
    IProtectedFolderEnum** const place = folders.GetAddr();
    Must(CallCompanion([&] { return GetProtectedFolderEnum(0, place); }) != 0 && folders, "there was no enumeration");
    CallCompanion([&] { return folders->GetChangeCounter(); });
    std::string listed;
    LibraryPtr<IProtectedFolder> folder;
    const auto next = [&] {
        IProtectedFolder** const out = folder.GetAddr();
        return CallCompanion([&] { return folders->Next(out); }) != 0;
    };
    for (int count = 0; next(); ++count) {
        Must(folder && count < kMostFolders, folder ? "it never ends" : "Next says that there is a folder and stores none");
        struct {
            ProtectedFolderRecord record{0xFFFFFFFF};
            std::uint32_t behind = 0x23232323;
        } out;
        CallCompanion([&] { folder->GetRecord(&out.record); });
        Must(out.record.type != 0xFFFFFFFF && out.behind == 0x23232323,
             "GetRecord does not fill the four bytes of the record, and no others");
        const std::string name = TextOf(*folder.Get(), &IProtectedFolder::GetName);
        const std::string path = TextOf(*folder.Get(), &IProtectedFolder::GetPath);
        Must(path.empty() || Path(Utf8DecodeStr(path)).is_absolute(), "the path of a folder is not absolute: " + path);
        listed += name + "|" + path + "\n";
    }
    return listed;
}

std::optional<Information> Library::Inform(const Path& container, const WIN32_FIND_DATAW& rawEntry) const {
    const std::string path = Utf8(container);
    Information info;
    auto& [lastWrite, lastAccess, creation] = info.times;
    LibraryPtr<IHvcStringW> name;
    IHvcStringW** const place = name.GetAddr();
    const std::int32_t answer = CallCompanion(
        [&] { return GetFileInformation(path.c_str(), place, &info.size, &rawEntry, &lastWrite, &lastAccess, &creation, nullptr); });
    if (answer != 1 || !name)
        return std::nullopt;
    if (const wchar_t* const text = CallCompanion([&] { return name->GetString(); }))
        info.name = text;
    return info;
}

std::optional<Information> Library::Inform(const Path& container) const {
    WIN32_FIND_DATAW rawEntry{};
    const UniqueFindHandle found(FindFirstFileW(PlatformPath(container).c_str(), &rawEntry));
    Must(static_cast<bool>(found), "there is no container");
    return Inform(container, rawEntry);
}

std::string Library::Read(const Path& container) const {
    HandedIn path(container);
    std::string content;
    {
        const LibraryPtr<IFileReader> reader(CallCompanion([&] { return FileReaderFactory(&path); }));
        path.CallIsOver();
        Must(static_cast<bool>(reader), "there was no reader");
        while (CallCompanion([&] { return reader->Advance(); }) != 0) {
            const std::uint32_t length = CallCompanion([&] { return reader->GetDataLength(); });
            const void* const data = CallCompanion([&] { return reader->GetData(); });
            Must(data || length == 0, "a block of " + std::to_string(length) + " bytes is null");
            content.append(static_cast<const char*>(data), length);
        }
    }
    Must(!path.IsTaken(), "it released a string that was handed in");
    return content;
}

std::optional<std::string> Library::ReadUnlessRefused(const Path& container) const {
    try {
        return Read(container);
    } catch (const Unmet&) {
    } catch (const CQuelcryptException&) {
    }
    return std::nullopt;
}

void Library::Save(const Path& container, const Document& document) const {
    Saving saving(*this, container, document);
    Must(saving.HasWriter(), "there was no writer");
    Must(saving.Write(document.content), "Write answered false");
    Must(saving.Finish(), "Finish answered false");
}

bool Library::RefusesToSave(const Path& container, const Document& document) const {
    try {
        Save(container, document);
        return false;
    } catch (const Unmet&) {
    } catch (const CQuelcryptException&) {
    }
    return true;
}

Saving::Saving(const Library& library, const Path& container, const Document& document)
    : m_strings{HandedIn(container), HandedIn(document.name), HandedIn(document.source)} {
    Times times = document.times;
    m_writer.Reset(CallCompanion([&] {
        return library.FileWriterFactory(&m_strings[0], &m_strings[1], &m_strings[2], document.attributes, &times[0], &times[1], &times[2],
                                         kWriterMode, kChunkBytes, nullptr);
    }));
    times = {};
    for (HandedIn& string : m_strings)
        string.CallIsOver();
}

bool Saving::Write(std::string_view content) {
    std::string piece;  // another one each time, so that none can be kept
    for (; !content.empty(); content.remove_prefix(piece.size())) {
        piece = content.substr(0, kChunkBytes);
        if (!CallCompanion([&] { return m_writer->Write(piece.data(), static_cast<std::uint32_t>(piece.size())); }))
            return false;
    }
    return true;
}

bool Saving::Finish() {
    const bool isDone = CallCompanion([&] { return m_writer->Finish(true); });
    for (const HandedIn& string : m_strings)
        Must(!string.IsTaken(), "it released a string that was handed in");
    return isDone;
}

}  // namespace conformance
