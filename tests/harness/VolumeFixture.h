// What every test over the built module stands on: a temp folder and a configuration of its own, the volume as a host gets
// it, and plain words for what hosts do. Each test runs as a process of its own, so the module's tables begin empty.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include <gtest/gtest.h>

#include "companion/Control.h"
#include "quelcrypt/IVirtualVolume.h"

// Statuses print by name.
const char* StatusName(VirtualVolumeStatus status);
void PrintTo(VirtualVolumeStatus status, std::ostream* out);

std::string Narrow(std::wstring_view text);  // UTF-8, for messages

struct LogLine {
    std::uint32_t level;
    std::uint32_t threadId;
    std::wstring text;
};

// Mount folders: "Docs" (policy, key K1, owner O1), "Other" (policy, key K2, owner O1), "Theirs" (policy, key K1, owner O2),
// "Plain" (no policy). Names like *.tmp are excluded from encryption.
class VolumeFixture : public ::testing::Test {
protected:
    static constexpr std::uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE | DELETE;
    static constexpr std::uint32_t kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

    void SetUp() override;
    // No live companion object, every real file can be opened unshared, no temp folder that nobody owns: a retained copy
    // stands alone, an unsaved edit beside its tracking file, and of those there are as many as the test expects.
    void TearDown() override;

    IVirtualVolume* volume() const { return m_volume; }
    IVirtualVolume* NewVolume() const;
    void LoadVolume();
    // The module with all its tables; volume() is null until it is loaded again.
    void UnloadVolume();

    // Paths: root() holds the mount folders and temp(); "Docs\\a.txt" -> its native path, whether it exists or not.
    const std::wstring& root() const { return m_root; }
    std::wstring temp() const { return m_root + L"\\temp"; }
    std::wstring NativePath(const std::wstring& volumePath) const { return m_root + L"\\" + volumePath; }
    std::wstring ContainerPath(const std::wstring& volumePath) const { return NativePath(volumePath) + L".zip"; }
    void Configure(const std::string& json) const;
    static const char* DefaultConfiguration();

    // As a host does it. Put creates or replaces, Get reads all; failures fail the test and Get then answers "<status>".
    void Put(const std::wstring& volumePath, std::string_view content);
    std::string Get(const std::wstring& volumePath);
    VirtualVolumeStatus Open(void** hFile, const std::wstring& volumePath, std::uint32_t access = kReadWrite,
                             std::uint32_t disposition = OPEN_EXISTING, const wchar_t* lockToken = nullptr);
    // Opens an existing item and fails the test when that fails.
    void* MustOpen(const std::wstring& volumePath, std::uint32_t access = kReadWrite, std::uint32_t disposition = OPEN_EXISTING,
                   const wchar_t* lockToken = nullptr);
    VirtualVolumeStatus Write(void* hFile, std::string_view content, std::uint64_t offset = 0);
    std::string Read(void* hFile, std::uint64_t offset = 0, std::uint32_t size = 1 << 20);
    void Close(void* hFile) { volume()->CloseFile(hFile, nullptr); }
    void Delete(const std::wstring& volumePath);
    // The names that a search shows, sorted; records too.
    std::vector<std::wstring> List(const std::wstring& volumePathSpec);
    std::vector<VirtFindData> ListRecords(const std::wstring& volumePathSpec);
    bool Find(const std::wstring& volumePath, VirtFindData* findData);

    // Behind the volume's back, on disk.
    void MakeContainer(const std::wstring& nativeContainerPath, const std::wstring& storedName, std::string_view content);
    // "<none>" when there is no container, "<unreadable>" when the companion cannot read it.
    std::string ContainerContent(const std::wstring& nativeContainerPath);
    static void WriteRaw(const std::wstring& nativePath, std::string_view bytes);
    static std::string ReadRaw(const std::wstring& nativePath);  // "<none>" when there is no file
    static bool Exists(const std::wstring& nativePath);
    static bool OpensUnshared(const std::wstring& nativePath);
    // Every file below a folder whose bytes hold the text.
    static std::vector<std::wstring> FilesHolding(const std::wstring& nativeFolder, std::string_view text);
    static std::vector<std::wstring> FilesBelow(const std::wstring& nativeFolder);
    // Moves a file's write time, so that it differs from what it was.
    static void Touch(const std::wstring& nativePath);

    // Temp files of items: retained copies (no tracking file beside) and edits with a tracking file.
    std::vector<std::wstring> RetainedCopies() const;
    std::vector<std::wstring> TrackedEdits() const;
    void ExpectUnsavedEdits(std::size_t count) { m_expectedUnsaved = count; }

    // The companion library's side.
    static std::uint32_t CallsDuring(const char* name, const std::function<void()>& action);
    static std::uint32_t AllCallsDuring(const std::function<void()>& action);
    static std::vector<LogLine> LinesDuring(const std::function<void()>& action);
    static bool HasLine(const std::vector<LogLine>& lines, std::wstring_view part);

    LockInfo NewLock(LockScope scope = LockScope_Exclusive) const;
    // Takes a lock, which must succeed, and returns its token.
    std::wstring Lock(const std::wstring& volumePath, LockScope scope = LockScope_Exclusive);

private:
    std::wstring m_root;
    HMODULE m_module = nullptr;
    IVirtualVolume* m_volume = nullptr;
    std::size_t m_expectedUnsaved = 0;
};

// In a test: what a call returned, by name.
#define EXPECT_OK(expression) EXPECT_EQ(VVS_Success, (expression))
#define ASSERT_OK(expression) ASSERT_EQ(VVS_Success, (expression))
