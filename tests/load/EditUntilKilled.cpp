// volume_victim SEED TEMP-FOLDER [SECONDS]: edits and moves three documents until the time is over or it is ended from
// outside, and says on standard output what it is about to do and what it has done. Starts from containers of version 0 in Docs;
// Plain has no policy.
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <windows.h>

#include "Documents.h"
#include "harness/Prompts.h"
#include "quelcrypt/IVirtualVolume.h"

namespace {

constexpr int kDocuments = 3;
constexpr std::uint32_t kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
const wchar_t* const kPlaces[] = {L"Docs\\", L"Docs\\sub\\", L"Other\\", L"Plain\\"};
constexpr int kPlain = 3;

class Victim {
public:
    Victim(IVirtualVolume* volume, unsigned seed) : m_volume(volume), m_random(seed) {}

    void Step() {
        const int document = static_cast<int>(m_random() % kDocuments);
        if (m_random() % 2 || m_place[document] == kPlain)
            Move(document);
        else
            Save(document, m_random() % 3 == 0);
    }

private:
    static std::wstring Path(int document, int place) { return kPlaces[place] + (L"d" + std::to_wstring(document)) + L".txt"; }

    void Save(int document, bool locked) {
        const std::wstring path = Path(document, m_place[document]);
        const int version = ++m_version;
        const std::string content = Version(document, version);
        LockInfo lockInfo{};
        lockInfo.timeout = 3600;
        lockInfo.scope = LockScope_Exclusive;
        if (locked && m_volume->Lock(path.c_str(), &lockInfo) != VVS_Success)
            return;
        void* hFile = nullptr;
        std::uint32_t done = 0;
        std::printf("edit %d %d %d\n", document, version, locked);
        if (m_volume->OpenFile(&hFile, path.c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll, OPEN_EXISTING, lockInfo.token,
                               nullptr) == VVS_Success &&
            m_volume->SetFileSize(hFile, content.size(), nullptr) == VVS_Success &&
            m_volume->WriteFile(hFile, 0, content.data(), static_cast<std::uint32_t>(content.size()), &done, nullptr) ==
                VVS_Success)
            std::printf("close %d %d %d\n", document, version, locked);
        m_volume->CloseFile(hFile, nullptr);
        std::printf("closed %d %d %d\n", document, version, locked);
        if (locked)
            m_volume->Unlock(path.c_str(), lockInfo.token);
    }
    void Move(int document) {
        const int to = (m_place[document] + 1 + static_cast<int>(m_random() % 3)) % 4;
        std::printf("move %d %d %d\n", document, m_place[document], to);
        if (m_volume->MoveFileW(Path(document, m_place[document]).c_str(), Path(document, to).c_str(), nullptr) == VVS_Success)
            m_place[document] = to;
        std::printf("moved %d\n", document);
    }

    IVirtualVolume* m_volume;
    std::minstd_rand m_random;
    int m_place[kDocuments] = {};
    int m_version = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (argc < 3)
        return 1;
    SetEnvironmentVariableA("TMP", argv[2]);  // which Wine does not hand over
    const HMODULE module = LoadLibraryW(L"QuelcryptVol64.dll");
    const auto factory = reinterpret_cast<IVirtualVolume* (*)()>(
        reinterpret_cast<void*>(module ? GetProcAddress(module, "Quelcrypt_VolumeFactory") : nullptr));
    if (!factory)
        return 1;
    if (!prompts::TakeOver(module))
        return 1;
    IVirtualVolume* const volume = factory();
    Victim victim(volume, static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)));
    std::printf("ready\n");
    const ULONGLONG end = argc > 3 ? GetTickCount64() + 1000 * std::strtoull(argv[3], nullptr, 10) : ~0ull;
    while (GetTickCount64() < end)
        victim.Step();
    volume->Release();
    return 0;
}
