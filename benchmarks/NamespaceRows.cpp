// Names, listings and handles: operations that do not access content.
#include <cstring>
#include <memory>

#include "Rows.h"
#include "World.h"

namespace {

constexpr wchar_t kPlainFile[] = L"Plain\\a plain file.txt";
constexpr wchar_t kEncryptedFile[] = L"Docs\\an encrypted file.txt";

IVirtualVolume* Volume() { return World::The().volume(); }
std::wstring PlainFile() { return World::The().File(kPlainFile, 100); }
std::wstring EncryptedFile() { return World::The().File(kEncryptedFile, 100); }

bool Exists(const std::wstring& nativePath) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    return GetFileAttributesExW(nativePath.c_str(), GetFileExInfoStandard, &data);
}

// Looks up a plain name, which is missing, and then its container, as the volume must.
void FindNativeContainer(const std::wstring& plainPath, const std::wstring& containerPath) {
    Must(!Exists(plainPath) && Exists(containerPath), "GetFileAttributesEx");
}

template <class Visit>
void ForEachEntry(const std::wstring& nativeFolder, int count, Visit visit) {
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW((nativeFolder + L"\\*").c_str(), &entry);
    Must(search != INVALID_HANDLE_VALUE, "FindFirstFile");
    int seen = 0;
    do {
        if (std::wcscmp(entry.cFileName, L".") != 0 && std::wcscmp(entry.cFileName, L"..") != 0) {
            visit(entry);
            ++seen;
        }
    } while (FindNextFileW(search, &entry));
    FindClose(search);
    Must(seen == count, "listing every file");
}

void ListThroughVolume(const std::wstring& volumeFolder, int count, VirtualItemType type) {
    VirtFindData entry;
    void* const search = Volume()->FindFirstFileW((volumeFolder + L"\\*").c_str(), &entry);
    Must(search != nullptr, "FindFirstFileW");
    int seen = 0;
    do
        seen += entry.itemType == type ? 1 : 0;
    while (Volume()->FindNextFileW(search, &entry));
    Volume()->FindClose(search);
    Must(seen == count, "listing every file as what it is");
}

void AskCompanion(const std::wstring& nativeFolder, const WIN32_FIND_DATAW& entry) {
    const std::wstring path = nativeFolder + L"\\" + entry.cFileName;
    char utf8[MAX_PATH * 3];
    Must(WideCharToMultiByte(CP_UTF8, 0, path.c_str(), -1, utf8, sizeof(utf8), nullptr, nullptr) > 0, "encoding a path");
    IHvcStringW* name = nullptr;
    std::uint64_t size = 0;
    SYSTEMTIME write, access, creation;
    Must(World::The().companion().getFileInformation(utf8, &name, &size, &entry, &write, &access, &creation, nullptr) == 1,
         "asking the companion library for a container");
    name->Release();
}

void AskCompanionForAll(const std::wstring& nativeFolder, int count) {
    ForEachEntry(nativeFolder, count, [&](const WIN32_FIND_DATAW& entry) { AskCompanion(nativeFolder, entry); });
}

Pair OpenAndClose(const std::wstring& path, std::function<void()> raw) {
    return {{std::move(raw)}, {[path] { const Item item(path); }}};
}

Pair ColdListing(int count, bool isSearchedTwice = false) {
    const std::wstring folder = World::The().EncryptedFolder(count);
    const std::wstring native = World::The().Native(folder);
    const auto forget = [] { World::The().Reload(); };
    return {{[=] {
                 if (isSearchedTwice)
                     ForEachEntry(native, count, [](const WIN32_FIND_DATAW&) {});
                 AskCompanionForAll(native, count);
             },
             forget},
            {[=] { ListThroughVolume(folder, count, VIT_EncryptedFile); }, forget}};
}

}  // namespace

// Rows are laid out as a table, which the formatter would destroy.
// clang-format off
Row OpeningPlain() {
    return {"OpenFile + CloseFile of an existing plain file", "1.2", Figure::Ratio, {{"", 400, 4, [] {
                const std::wstring native = World::The().Native(PlainFile());
                return OpenAndClose(kPlainFile, [native] {
                    Must(Exists(native), "GetFileAttributesEx");
                    const File file(native);
                });
            }}}};
}

Row OpeningEncrypted() {
    return {"OpenFile + CloseFile of an encrypted file, content untouched", "3", Figure::Ratio, {{"", 400, 4, [] {
                const std::wstring plain = World::The().Native(EncryptedFile());
                return OpenAndClose(kEncryptedFile,
                                    [plain, container = plain + L".zip"] { FindNativeContainer(plain, container); });
            }}}};
}

Row Finding() {
    const auto find = [](const wchar_t* path) {
        return Side{[path] {
            VirtFindData found;
            Must(Volume()->FindFile(path, &found), "FindFile");
        }};
    };
    return {"FindFile of a plain file; of a cached container",
            "1.4",
            Figure::Ratio,
            {{"of a plain file", 400, 20,
              [=] {
                  const std::wstring native = World::The().Native(PlainFile());
                  return Pair{{[native] { Must(Exists(native), "GetFileAttributesEx"); }}, find(kPlainFile)};
              }},
             {"of a cached container", 400, 20, [=] {
                  const std::wstring plain = World::The().Native(EncryptedFile());
                  return Pair{{[plain, container = plain + L".zip"] { FindNativeContainer(plain, container); }},
                              find(kEncryptedFile)};
              }}}};
}

Row ListingPlain() {
    return {"list 1,000 plain files", "1.1", Figure::Ratio, {{"", 60, 1, [] {
                const std::wstring folder = World::The().PlainFolder(1000);
                const std::wstring native = World::The().Native(folder);
                return Pair{{[=] { ForEachEntry(native, 1000, [](const WIN32_FIND_DATAW&) {}); }},
                            {[=] { ListThroughVolume(folder, 1000, VIT_PlainFile); }}};
            }}}};
}

Row ListingWarm() {
    return {"list 1,000 encrypted files, warm", "1.3", Figure::Ratio, {{"", 60, 1, [] {
                const std::wstring folder = World::The().EncryptedFolder(1000);
                const std::wstring native = World::The().Native(folder);
                ListThroughVolume(folder, 1000, VIT_EncryptedFile);
                return Pair{{[=] { ForEachEntry(native, 1000, [](const WIN32_FIND_DATAW&) {}); }},
                            {[=] { ListThroughVolume(folder, 1000, VIT_EncryptedFile); }}};
            }}}};
}

Row ListingCold() {
    return {"list 1,000 and 10,000 encrypted files, cold",
            "1.1, and linear",
            Figure::Ratio,
            {{"1,000", 15, 1, [] { return ColdListing(1000); }}, {"10,000", 7, 1, [] { return ColdListing(10000); }},
             {"1,000, beside two searches", 15, 1, [] { return ColdListing(1000, true); }, true}}};
}

Row Locking() {
    constexpr DWORD lockAccess = 0x13019F;  // the access with which the volume opens a locked file
    const auto lockPair = [](int lookUps) {
        const std::wstring path = PlainFile();
        const std::wstring native = World::The().Native(path);
        return Pair{{[=] {
                        for (int i = 0; i < lookUps; ++i)
                            Must(Exists(native), "GetFileAttributesEx");
                        CloseHandle(::CreateFileW(native.c_str(), lockAccess, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr));
                    }},
                    {[=] {
                        LockInfo lock{};
                        Must(Volume()->Lock(path.c_str(), &lock) == VVS_Success &&
                                 Volume()->Unlock(path.c_str(), lock.token) == VVS_Success,
                             "Lock and Unlock");
                    }}};
    };
    return {"Lock + Unlock",
            "1.3",
            Figure::Ratio,
            {{"beside CreateFile and CloseHandle", 400, 4, [=] { return lockPair(0); }},
             {"beside these and GetFileAttributesEx twice", 400, 4, [=] { return lockPair(2); }, true}}};
}

// FindNextFileW without a search returns at once, so only tracing is measured, with one message line.
Row TracingNothing() {
    return {"a traced function below trace level", "under 0.030 above", Figure::Ratio, {{"", 60, 20000, [] {
                return Pair{{[] { Volume()->ReservedQuery28(); }}, {[] { Volume()->FindNextFileW(nullptr, nullptr); }}};
            }}}};
}

Row CompanionAlone() {
    const auto alone = [](int count, bool isCold) {
        return [=] {
            const std::wstring native = World::The().Native(World::The().EncryptedFolder(count));
            const auto forget = [=] {
                if (isCold)
                    World::The().Reload();
            };
            return Pair{{}, {[=] { AskCompanionForAll(native, count); }, forget}};
        };
    };
    return {"the companion library alone",
            "",
            Figure::Alone,
            {{"file information of 1,000 containers and the search, cold", 5, 1, alone(1000, true)},
             {"the same, remembered", 20, 1, alone(1000, false)},
             {"of 10,000, remembered", 5, 1, alone(10000, false)}}};
}
// clang-format on
