// The function table, the exports and the module, as a host of another compiler sees them.
#include "harness/VolumeFixture.h"

namespace {

// A pointer to a virtual member function is its offset in the table in bytes, plus one ("Itanium C++ ABI": member function pointers).
template <class Slot>
std::size_t PlaceOf(Slot slot) {
    std::size_t place = 0;
    std::memcpy(&place, &slot, sizeof(place));
    return (place - 1) / sizeof(void*);
}

}  // namespace

using RawSlotTable = VolumeFixture;

TEST_F(RawSlotTable, EachSlotStandsWhereItMust) {
    using V = IVirtualVolume;
    const auto placesOf = [](auto... slots) { return std::vector<std::size_t>{PlaceOf(slots)...}; };
    const auto places =
        placesOf(&V::Destroy, &V::Release, &V::GetMountInfoByVolumePath, &V::GetMountInfoByNativePath, &V::FindFirstMountFolder,
                 &V::FindNextMountFolder, &V::FindFile, &V::FindFirstFileW, &V::FindNextFileW, &V::FindClose, &V::OpenFile, &V::CloseFile,
                 &V::Delete, &V::Undelete, &V::RenameFile, &V::MoveFileW, &V::CopyFileW, &V::ReadFile, &V::WriteFile, &V::SetFileSize,
                 &V::Flush, &V::GetFileInfo, &V::SetFileInfo, &V::Lock, &V::Unlock, &V::FindLock, &V::FindFirstLock, &V::FindNextLock,
                 &V::ReservedQuery28, &V::ReservedQuery29, &V::ReservedNoOp30, &V::ReservedQuery31, &V::GetSpace);
    ASSERT_EQ(33u, places.size());
    for (std::size_t slot = 0; slot < places.size(); ++slot)
        EXPECT_EQ(slot, places[slot]);

    EXPECT_FALSE(volume()->ReservedQuery28() || volume()->ReservedQuery29() || volume()->ReservedQuery31());
    volume()->ReservedNoOp30(nullptr, nullptr);
    std::uint64_t total = 0;
    EXPECT_EQ(0xFFFFFFFFFFu, volume()->GetSpace(&total, nullptr));
    EXPECT_EQ(0xFFFFFFFFFFu, total);
    // Slot 0 destroys and, if asked to, frees; slot 1 does both. Another object can close what one object opened.
    WriteRaw(NativePath(L"Plain\\b"), "content");
    IVirtualVolume *const first = NewVolume(), *const second = NewVolume();
    void* hFile = nullptr;
    ASSERT_OK(first->OpenFile(&hFile, L"Plain\\b", GENERIC_READ, kShareAll, OPEN_EXISTING, nullptr, nullptr));
    EXPECT_EQ(first, first->Destroy(1));
    EXPECT_EQ("content", Read(hFile));
    second->CloseFile(hFile, nullptr);
    second->Release();
}

TEST_F(RawSlotTable, TheModuleIsFoundByItsThreeExportsAndLeavesNothing) {
    for (const char* name : {"EnableAsserts", "DisableAsserts"}) {
        FARPROC const function = GetProcAddress(GetModuleHandleW(L"QuelcryptVol64.dll"), name);
        ASSERT_NE(nullptr, function) << name;
        reinterpret_cast<void (*)(void*, void*)>(reinterpret_cast<void*>(function))(nullptr, this);
    }
    // A host may load the module for each of its tasks: no memory may be left, nor a thread-local slot.
    const auto bytesInUse = [] {
        std::vector<HANDLE> heaps(64);
        heaps.resize(std::min<DWORD>(GetProcessHeaps(64, heaps.data()), 64));
        std::size_t bytes = 0;
        for (const HANDLE heap : heaps)
            for (PROCESS_HEAP_ENTRY entry{}; HeapWalk(heap, &entry);)
                bytes += entry.wFlags & PROCESS_HEAP_ENTRY_BUSY ? entry.cbData : 0;
        return bytes;
    };
    Companion().level = 0;  // it keeps the lines
    std::size_t before = 0;
    DWORD freeSlot = 0;
    for (int round = 0; round < 120; ++round) {
        if (round == 20)
            before = bytesInUse();
        Put(L"Docs\\a.txt", "content");
        EXPECT_EQ("content", Get(L"Docs\\a.txt"));
        UnloadVolume();
        EXPECT_EQ(nullptr, GetModuleHandleW(L"QuelcryptVol64.dll"));
        const DWORD slot = TlsAlloc();
        TlsFree(slot);
        EXPECT_TRUE(round == 0 || slot <= freeSlot + 1) << "the module keeps slots; one a load is the compiler's runtime's";
        freeSlot = slot;
        LoadVolume();
    }
    EXPECT_LT(0u, before);
#ifndef QUELCRYPT_CHECKED  // whose guarded heap keeps some of each module
    EXPECT_LT(bytesInUse(), before + (3 << 20)) << "bytes after a hundred rounds; some systems keep a little of each themselves";
#endif
}

TEST_F(RawSlotTable, TheModuleNeedsItsCompanionButNotTheLog) {
    constexpr const char* kEnd = "Quelcrypt_Uninitialize";
    EXPECT_EQ(1u, CallsDuring(kEnd, [&] { UnloadVolume(); }));
    Companion().FailNth("Quelcrypt_Initialize", 1, Fault::Error, false);
    EXPECT_EQ(0u, CallsDuring(kEnd, [] { EXPECT_EQ(nullptr, LoadLibraryW(L"QuelcryptVol64.dll")); }));
    const std::pair<const char*, Fault> failures[] = {{"Quelcrypt_GetFileLogger", Fault::Null},
                                                      {"Quelcrypt_GetFileLogger", Fault::Error},
                                                      {"Quelcrypt_GetLoggerComponentIndex", Fault::Error}};
    for (const auto& [call, fault] : failures) {
        Companion().FailNth(call, 1, fault, false);
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
