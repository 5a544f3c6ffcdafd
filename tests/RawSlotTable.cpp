// The volume through its raw function table, as a host of another compiler sees it.
#include "harness/VolumeFixture.h"

#include <algorithm>
#include <span>


class RawSlotTable : public VolumeFixture {
protected:
    template <class Result, class... Args>
    Result Call(std::size_t slot, Args... args) {
        void* const object = volume();
        void** const table = *static_cast<void***>(object);
        return reinterpret_cast<Result (*)(void*, Args...)>(table[slot])(object, args...);
    }
};

TEST_F(RawSlotTable, EachSlotStandsWhereItMust) {
    WriteRaw(NativePath(L"Plain\\a"), "content");
    VirtFindData findData{};
    VirtFindData* const noData = nullptr;
    VirtMountInfo mountInfo{};
    const std::wstring native = NativePath(L"Plain\\a");
    EXPECT_TRUE((Call<bool>(2, L"Plain\\a", &mountInfo)));
    EXPECT_TRUE((Call<bool>(3, native.c_str(), &mountInfo)));
    void* const hMounts = Call<void*>(4, L"Pl*");
    ASSERT_NE(nullptr, hMounts);
    EXPECT_TRUE((Call<bool>(5, hMounts, &mountInfo)));
    EXPECT_STREQ(L"Plain", mountInfo.name);
    EXPECT_TRUE((Call<bool>(9, hMounts)));
    EXPECT_TRUE((Call<bool>(6, L"Plain\\a", &findData)));
    void* const hFiles = Call<void*>(7, L"Plain\\*", &findData);
    ASSERT_NE(nullptr, hFiles);
    EXPECT_FALSE((Call<bool>(8, hFiles, &findData)));
    EXPECT_TRUE((Call<bool>(9, hFiles)));

    void* hFile = nullptr;
    const wchar_t* const noToken = nullptr;
    ASSERT_OK((Call<VirtualVolumeStatus>(10, &hFile, L"Plain\\a", kReadWrite, kShareAll, 3u, noToken, &findData)));
    EXPECT_EQ(VIT_PlainFile, findData.itemType);
    EXPECT_OK((Call<VirtualVolumeStatus>(12, hFile, noData)));
    EXPECT_OK((Call<VirtualVolumeStatus>(13, hFile, noData)));
    EXPECT_OK((Call<VirtualVolumeStatus>(14, hFile, noData, L"Plain\\b", noToken)));
    char data[8] = "";
    std::uint32_t done = 0;
    EXPECT_OK((Call<VirtualVolumeStatus>(17, hFile, std::uint64_t{3}, static_cast<void*>(data), 4u, &done, noData)));
    EXPECT_EQ("tent", std::string(data, done));
    EXPECT_OK((Call<VirtualVolumeStatus>(18, hFile, std::uint64_t{0}, static_cast<const void*>("CON"), 3u, &done, noData)));
    EXPECT_EQ(3u, done);
    EXPECT_OK((Call<VirtualVolumeStatus>(19, hFile, std::uint64_t{5}, noData)));
    EXPECT_OK((Call<VirtualVolumeStatus>(20, hFile)));
    EXPECT_TRUE((Call<bool>(21, hFile, &findData)));
    EXPECT_EQ(5, findData.fileSize);
    EXPECT_OK((Call<VirtualVolumeStatus>(22, hFile, 0xFFFFFFFFu, static_cast<const VirtFindData*>(&findData))));
    Call<void>(11, hFile, noData);
    EXPECT_EQ("CONte", ReadRaw(NativePath(L"Plain\\b")));
    EXPECT_OK((Call<VirtualVolumeStatus>(16, L"Plain\\b", L"Plain\\c", noToken)));
    EXPECT_OK((Call<VirtualVolumeStatus>(15, L"Plain\\c", L"Plain\\d", noToken)));
    EXPECT_EQ((std::vector<std::wstring>{L"b", L"d"}), List(L"Plain\\*"));

}

TEST_F(RawSlotTable, SoDoThoseOfLocksAndOfTheObjectItself) {
    WriteRaw(NativePath(L"Plain\\b"), "CONte");
    const wchar_t* const noToken = nullptr;
    VirtFindData* const noData = nullptr;
    LockInfo lockInfo = NewLock(LockScope_Shared);
    ASSERT_OK((Call<VirtualVolumeStatus>(23, L"Plain\\b", &lockInfo)));
    const std::wstring token = lockInfo.token;
    EXPECT_EQ(38u, token.size());
    EXPECT_OK((Call<VirtualVolumeStatus>(25, L"Plain\\b", noToken, &lockInfo)));
    void* const hLocks = Call<void*>(26, L"Plain\\b", &lockInfo);
    ASSERT_NE(nullptr, hLocks);
    EXPECT_EQ(VVS_FileNotLocked, (Call<VirtualVolumeStatus>(27, hLocks, &lockInfo)));
    EXPECT_TRUE((Call<bool>(9, hLocks)));
    EXPECT_OK((Call<VirtualVolumeStatus>(24, L"Plain\\b", token.c_str())));

    EXPECT_FALSE(Call<bool>(28));
    EXPECT_EQ(0u, Call<std::uint32_t>(29));
    Call<void>(30, noData, noData);
    EXPECT_FALSE(Call<bool>(31));
    std::uint64_t total = 0;
    std::uint64_t* const notAsked = nullptr;
    EXPECT_EQ(0xFFFFFFFFFFu, (Call<std::uint64_t>(32, &total, notAsked)));
    EXPECT_EQ(0xFFFFFFFFFFu, total);

    // 0 destroys and, asked to, frees; 1 does both. What one object opened, another closes.
    IVirtualVolume* const first = NewVolume();
    IVirtualVolume* const second = NewVolume();
    void* hFile = nullptr;
    ASSERT_OK(first->OpenFile(&hFile, L"Plain\\b", GENERIC_READ, kShareAll, OPEN_EXISTING, nullptr, nullptr));
    void** const table = *reinterpret_cast<void***>(first);
    EXPECT_EQ(first, reinterpret_cast<void* (*)(void*, std::uint32_t)>(table[0])(first, 1));
    EXPECT_EQ("CONte", Read(hFile));
    second->CloseFile(hFile, nullptr);
    reinterpret_cast<void (*)(void*)>(table[1])(second);
}

TEST_F(RawSlotTable, TheModuleIsFoundByItsThreeExportsAndCanBeUnloaded) {
    const HMODULE module = GetModuleHandleW(L"QuelcryptVol64.dll");
    for (const char* name : {"EnableAsserts", "DisableAsserts"}) {
        const auto function = reinterpret_cast<void (*)(void*, void*)>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        ASSERT_NE(nullptr, function) << name;
        function(nullptr, this);
    }
    DWORD freeSlot = TLS_OUT_OF_INDEXES;  // of the process, for values of threads
    for (int round = 0; round < 3; ++round) {
        Put(L"Docs\\a.txt", "content");
        UnloadVolume();
        EXPECT_EQ(nullptr, GetModuleHandleW(L"QuelcryptVol64.dll"));
        const DWORD slot = TlsAlloc();
        TlsFree(slot);
        EXPECT_LE(slot, round == 0 ? slot : freeSlot + 1) << "the module keeps slots; one a load is the compiler's runtime's";
        freeSlot = slot;
        LoadVolume();
        EXPECT_EQ("content", Get(L"Docs\\a.txt"));
    }
}

TEST_F(RawSlotTable, TheModuleNeedsItsCompanionButNotTheLog) {
    constexpr const char* kEnd = "Quelcrypt_Uninitialize";
    EXPECT_EQ(1u, CallsDuring(kEnd, [&] { UnloadVolume(); }));
    TestCompanion_FailNth("Quelcrypt_Initialize", 1, Fault::Error, false);
    EXPECT_EQ(0u, CallsDuring(kEnd, [] { EXPECT_EQ(nullptr, LoadLibraryW(L"QuelcryptVol64.dll")); }));
    const std::pair<const char*, Fault> failures[] = {{"Quelcrypt_GetFileLogger", Fault::Null},
                                                      {"Quelcrypt_GetFileLogger", Fault::Error},
                                                      {"Quelcrypt_GetLoggerComponentIndex", Fault::Error}};
    for (const auto& [call, fault] : failures) {
        TestCompanion_FailNth(call, 1, fault, false);
        EXPECT_EQ(0u, LinesDuring([&] {
                          LoadVolume();
                          Put(L"Docs\\a.txt", "content");
                      }).size())
            << call;
        EXPECT_EQ("content", Get(L"Docs\\a.txt"));
        EXPECT_EQ(1u, CallsDuring(kEnd, [&] { UnloadVolume(); }));
    }
    LoadVolume();
}

// A host may load it for each of its tasks.
TEST_F(RawSlotTable, LoadingAndUnloadingLeavesNoMemory) {
    const auto bytesInUse = [] {
        HANDLE heaps[64];
        const DWORD count = std::min<DWORD>(GetProcessHeaps(64, heaps), 64);
        std::size_t bytes = 0;
        for (const HANDLE heap : std::span(heaps, count)) {
            PROCESS_HEAP_ENTRY entry{};
            while (HeapWalk(heap, &entry))
                bytes += entry.wFlags & PROCESS_HEAP_ENTRY_BUSY ? entry.cbData : 0;
        }
        return bytes;
    };
    TestCompanion_SetLevel(0);  // it keeps the lines
    std::size_t before = 0;
    for (int round = 0; round < 120; ++round) {
        if (round == 20)
            before = bytesInUse();
        Put(L"Plain\\a.txt", "content");
        EXPECT_EQ("content", Get(L"Plain\\a.txt"));
        UnloadVolume();
        LoadVolume();
    }
    EXPECT_LT(0u, before);
    EXPECT_LT(bytesInUse(), before + (3 << 20)) << "bytes after a hundred rounds; some systems keep a little of each themselves";
}
