// Threads that move, rename, copy, lock, list, open and save a few files at once, over several volume objects. Every content
// names its document and its version and fills its file with one letter of that version, so that a mixture, a part or a
// foreign content shows; at the end every file is one version whole, and no document is missing.
#include "harness/ConflictsAndBackups.h"
#include "harness/MovingFixture.h"
#include "load/Documents.h"

#include <atomic>
#include <random>
#include <set>
#include <thread>

namespace {

constexpr int kDocuments = 3;
constexpr int kThreads = 6;
constexpr int kSteps = 60;  // of each thread

int DocumentOf(const std::string& content) {
    int document = -1;
    std::sscanf(content.c_str(), "document %d ", &document);
    return document;
}

}  // namespace

class MovingUnderLoad : public Moving {
protected:
    // One thread's work: a document at a time, wherever it stands.
    class Worker {
    public:
        Worker(MovingUnderLoad& test, unsigned seed) : m_test(test), m_volume(test.NewVolume()), m_random(seed) {}
        ~Worker() { m_volume->Release(); }
        void Work() {
            for (int step = 0; step < kSteps; ++step)
                switch (m_random() % 8) {
                    case 0:
                    case 1: Save(); break;
                    case 2: Move(); break;
                    case 3: Rename(); break;
                    case 4: Copy(); break;
                    case 5: Lock(); break;
                    case 6: List(); break;
                    default: Read(AnyPath()); break;
                }
        }

    private:
        // Any of the few places of any document. Documents keep to names of their own, so each is replaced by its own
        // versions only.
        std::wstring AnyPath() {
            m_document = static_cast<int>(m_random() % kDocuments);
            return PathOf(m_document);
        }
        std::wstring PathOf(int document) {
            const std::wstring name = L"d" + std::to_wstring(document);
            const std::wstring places[] = {L"Docs\\" + name + L".txt", L"Docs\\sub\\" + name + L".txt",
                                           L"Other\\" + name + L" renamed.txt", L"Plain\\" + name + L".txt"};
            return places[m_random() % 4];
        }
        void* Open(const std::wstring& path, std::uint32_t access, const wchar_t* token = nullptr) {
            void* hFile = nullptr;
            m_volume->OpenFile(&hFile, path.c_str(), access, kShareAll, OPEN_EXISTING, token, nullptr);
            return hFile;
        }
        // What a reader sees is one version whole, whatever happens meanwhile.
        void Read(const std::wstring& path) {
            const int document = m_document;
            void* const hFile = Open(path, GENERIC_READ);
            if (!hFile)
                return;
            std::string content(200'000, '\0');
            std::uint32_t done = 0;
            const VirtualVolumeStatus status =
                m_volume->ReadFile(hFile, 0, content.data(), static_cast<std::uint32_t>(content.size()), &done, nullptr);
            content.resize(done);
            if (status == VVS_Success && !path.starts_with(L"Plain") && done != 0) {
                EXPECT_NE(-1, VersionOf(document, content)) << Narrow(path) << ": " << content.substr(0, 60) << "... of " << done;
            }
            m_volume->CloseFile(hFile, nullptr);
        }
        // Writes a version of its own and notes it before anybody can have it.
        void Fill(void* hFile, int document) {
            const int version = ++m_test.m_versions;
            const std::string content = Version(document, version);
            m_volume->SetFileSize(hFile, content.size(), nullptr);
            std::uint32_t done = 0;
            m_volume->WriteFile(hFile, 0, content.data(), static_cast<std::uint32_t>(content.size()), &done, nullptr);
        }
        void Save() {
            const std::wstring path = AnyPath();
            const int document = m_document;
            if (path.starts_with(L"Plain"))  // written where it stands, so others may see it half written
                return;
            if (void* const hFile = Open(path, kReadWrite)) {
                Fill(hFile, document);
                m_volume->CloseFile(hFile, nullptr);
            }
        }
        void Move() {
            const std::wstring path = AnyPath();
            m_volume->MoveFileW(path.c_str(), PathOf(m_document).c_str(), nullptr);
        }
        void Rename() {
            const std::wstring path = AnyPath();
            const int document = m_document;
            void* const hFile = Open(path, kReadWrite);
            if (!hFile)
                return;
            if (!path.starts_with(L"Plain") && m_random() % 2)
                Fill(hFile, document);
            m_volume->RenameFile(hFile, nullptr, PathOf(document).c_str(), nullptr);
            m_volume->CloseFile(hFile, nullptr);
        }
        void Copy() {
            const std::wstring path = AnyPath();
            m_volume->CopyFileW(path.c_str(), PathOf(m_document).c_str(), nullptr);
        }
        void Lock() {
            const std::wstring path = AnyPath();
            const int document = m_document;
            VirtFindData findData{};
            LockInfo lockInfo = m_test.NewLock(m_random() % 2 ? LockScope_Exclusive : LockScope_Shared);
            if (!m_volume->FindFile(path.c_str(), &findData) || m_volume->Lock(path.c_str(), &lockInfo) != VVS_Success)
                return;
            if (void* const hFile = path.starts_with(L"Plain") ? nullptr : Open(path, kReadWrite, lockInfo.token)) {
                Fill(hFile, document);
                m_volume->CloseFile(hFile, nullptr);
            }
            EXPECT_OK(m_volume->Unlock(path.c_str(), lockInfo.token)) << Narrow(path);
        }
        void List() {
            VirtFindData findData{};
            for (const wchar_t* spec : {L"Docs\\*", L"Docs\\sub\\*", L"Other\\*", L"Plain\\*"})
                if (void* const hFind = m_volume->FindFirstFileW(spec, &findData)) {
                    while (m_volume->FindNextFileW(hFind, &findData)) {
                    }
                    m_volume->FindClose(hFind);
                }
        }

        MovingUnderLoad& m_test;
        IVirtualVolume* m_volume;
        std::minstd_rand m_random;
        int m_document = 0;
    };

    std::atomic<int> m_versions{0};
};

TEST_F(MovingUnderLoad, LosesNoFileAndMixesNone) {
    const char* const given = std::getenv("QUELCRYPT_TEST_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : GetTickCount();
    std::printf("seed %u (QUELCRYPT_TEST_SEED repeats it)\n", seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    TestCompanion_SetLevel(1);
    PromptedUser cancels;
    MakeFolder(L"Docs\\sub");
    for (int document = 0; document < kDocuments; ++document)
        MakeEncrypted(L"Docs\\d" + std::to_wstring(document) + L".txt", Version(document, 0));

    std::vector<std::thread> threads;
    for (unsigned index = 0; index < kThreads; ++index)
        threads.emplace_back([this, seed, index] { Worker(*this, seed + index).Work(); });
    for (std::thread& thread : threads)
        thread.join();

    std::set<int> found;
    for (const std::wstring& file : FilesBelow(root())) {
        const std::wstring name = std::filesystem::path(file).filename().wstring();
        if (file.starts_with(temp()) || !name.starts_with(L"d"))
            continue;
        const std::string content = name.ends_with(L".zip") ? ContainerContent(file) : ReadRaw(file);
        if (content.empty())  // made by a lock that came too late, and moved on by another thread
            continue;
        const int document = DocumentOf(content);
        EXPECT_EQ(L"d" + std::to_wstring(document), name.substr(0, 2));
        EXPECT_NE(-1, VersionOf(document, content))
            << Narrow(file) << " holds " << content.substr(0, 60) << "... of " << content.size();
        found.insert(document);
    }
    for (int document = 0; document < kDocuments; ++document)
        EXPECT_TRUE(found.contains(document)) << "document " << document << " is lost";
    ExpectUnsavedEdits(TrackedEdits().size());
    std::printf("%d versions written, %zu files, %zu edits waiting\n", m_versions.load(), Disk().size(), TrackedEdits().size());
}
