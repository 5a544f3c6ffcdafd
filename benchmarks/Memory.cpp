#include "Memory.h"

#include <cstdio>

#include <windows.h>

#include <psapi.h>  // needs the one above

#include "Harness.h"
#include "World.h"

namespace {

double PeakMiB() {
    PROCESS_MEMORY_COUNTERS counters{};
    Must(GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)), "GetProcessMemoryInfo");
    return static_cast<double>(counters.PeakWorkingSetSize) / (1 << 20);
}

void List(const std::wstring& folder) {
    IVirtualVolume* const volume = World::The().volume();
    VirtFindData entry;
    void* const search = volume->FindFirstFileW((folder + L"\\*").c_str(), &entry);
    Must(search != nullptr, "FindFirstFileW");
    while (volume->FindNextFileW(search, &entry)) {
    }
    volume->FindClose(search);
}

void Save(const wchar_t* path, int mebibytes) {
    IVirtualVolume* const volume = World::The().volume();
    static const std::string block(1 << 20, 'x');
    void* file = nullptr;
    Must(volume->OpenFile(&file, path, GENERIC_READ | GENERIC_WRITE, World::kShareAll, CREATE_ALWAYS, nullptr, nullptr) == VVS_Success,
         "OpenFile");
    for (int i = 0; i < mebibytes; ++i)
        Must(volume->WriteFile(file, static_cast<std::uint64_t>(i) << 20, block.data(), 1 << 20, nullptr, nullptr) == VVS_Success,
             "WriteFile");
    volume->CloseFile(file, nullptr);
    VirtFindData saved{};
    Must(volume->FindFile(path, &saved) && saved.itemType == VIT_EncryptedFile && saved.fileSize == std::int64_t{mebibytes} << 20,
         "saving");
}

}  // namespace

int PrintMemoryPeaks() {
    World& world = World::The();
    const struct {
        const char* work;
        std::function<void()> run;
    } works[] = {
        {"making the files, beforehand", [&] { world.EncryptedFolder(1000), world.EncryptedFolder(10000); }},
        {"listing 1,000 containers", [&] { List(world.EncryptedFolder(1000)); }},
        {"listing 10,000 containers", [&] { List(world.EncryptedFolder(10000)); }},
        {"listing 10,000 containers again", [&] { List(world.EncryptedFolder(10000)); }},
        {"saving 64 MiB", [] { Save(L"Docs\\64.bin", 64); }},
        {"saving 1 GiB", [] { Save(L"Docs\\1024.bin", 1024); }},
    };
    std::printf("| after | peak working set (MiB) |\n|---|---|\n");
    for (const auto& work : works) {
        work.run();
        std::printf("| %s | %.1f |\n", work.work, PeakMiB());
    }
    return 0;
}
