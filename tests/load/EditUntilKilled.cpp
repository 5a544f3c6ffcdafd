// volume_victim SEED TEMP-FOLDER: edits and moves three documents until it is ended from outside, and says on standard output what it is about to do and what it has done. Starts from containers of version 0 in Docs;
// Plain has no policy.
#include <cstdio>
#include <cstdlib>
#include <random>

#include "Documents.h"
#include "harness/Prompts.h"

namespace {

constexpr int kDocuments = 3;

class Victim {
public:
    Victim(IVirtualVolume* volume, unsigned seed) : m_volume(volume), m_random(seed) {}

    void Step() {
        const int document = static_cast<int>(m_random() % kDocuments);
        if (m_random() % 2 || m_place[document] == kPlainPlace)
            Move(document);
        else
            Save(document, m_random() % 3 == 0);
    }

private:
    void Save(int document, bool locked) {
        const std::wstring path = DocumentPath(document, m_place[document]);
        const int version = ++m_version;
        LockInfo lockInfo{};
        lockInfo.timeout = 3600;
        lockInfo.scope = LockScope_Exclusive;
        if (locked && m_volume->Lock(path.c_str(), &lockInfo) != VVS_Success)
            return;
        std::printf("edit %d %d %d\n", document, version, locked);
        void* const hFile = OpenDocument(m_volume, path, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING, lockInfo.token);
        if (hFile && Replace(m_volume, hFile, Version(document, version)))
            std::printf("close %d %d %d\n", document, version, locked);
        m_volume->CloseFile(hFile, nullptr);
        std::printf("closed %d %d %d\n", document, version, locked);
        if (locked)
            m_volume->Unlock(path.c_str(), lockInfo.token);
    }
    void Move(int document) {
        const int to = (m_place[document] + 1 + static_cast<int>(m_random() % (kPlaces - 1))) % kPlaces;
        std::printf("move %d %d %d\n", document, m_place[document], to);
        if (m_volume->MoveFileW(DocumentPath(document, m_place[document]).c_str(), DocumentPath(document, to).c_str(), nullptr) == VVS_Success)
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
    if (!factory || !prompts::TakeOver(module))
        return 1;
    IVirtualVolume* const volume = factory();
    Victim victim(volume, static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)));
    std::printf("ready\n");
    for (;;)
        victim.Step();
}
