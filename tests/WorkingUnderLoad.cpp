// Threads that work at once while the companion library fails now and then. Each knows what documents of its own hold, which must
// be so at any moment; documents that all share stay whole versions. QUELCRYPT_TEST_SEED and QUELCRYPT_TEST_STEPS set other ones.
#include "harness/VolumeFixture.h"
#include "load/Documents.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

namespace {

constexpr int kThreads = 4;
constexpr int kShared = 3;  // documents 0 to 2
constexpr int kOwn = 3;     // documents of each thread

unsigned Setting(const char* name, unsigned otherwise) {
    const char* const given = std::getenv(name);
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

}  // namespace

class WorkingUnderLoad : public VolumeFixture {
protected:
    WorkingUnderLoad() : VolumeFixture(LogLevel_Error) {}

    struct Document {
        int number;
        std::wstring path;  // empty: it does not exist
        std::string content;
    };
    using Random = std::minstd_rand;

    static std::wstring AnyPath(int document, Random& random) {
        return DocumentPath(document, static_cast<int>(random() % kPlaces));
    }
    VirtualVolumeStatus MoveIt(const std::wstring& from, const std::wstring& to, bool isRename) {
        if (!isRename)
            return Move(from, to);
        void* const hFile = OpenDocument(volume(), from, kReadWrite);
        const VirtualVolumeStatus status = hFile ? Rename(hFile, to) : VVS_GeneralError;
        Close(hFile);
        return status;
    }
    // What was written counts as the content once the volume has taken it, whatever becomes of the save.
    void Save(Document& own, Random& random, bool isLocked) {
        const bool isNew = own.path.empty();
        const std::wstring path = isNew ? AnyPath(own.number, random) : own.path;
        LockInfo lockInfo = NewLock();
        if (isLocked && (isNew || volume()->Lock(path.c_str(), &lockInfo) != VVS_Success))
            return;
        if (void* const hFile = OpenDocument(volume(), path, kReadWrite, isNew ? CREATE_NEW : OPEN_EXISTING, lockInfo.token)) {
            const std::string content = Version(own.number, ++m_versions);
            if (Replace(volume(), hFile, content))
                own = {own.number, path, content};
            else if (isNew)
                volume()->Delete(hFile, nullptr);
            Close(hFile);
        }
        for (int attempt = 0; isLocked && attempt < 2; ++attempt)  // the first one may be failed
            isLocked = volume()->Unlock(path.c_str(), lockInfo.token) != VVS_Success;
    }
    void DeleteIt(Document& own) {
        void* const hFile = OpenDocument(volume(), own.path, DELETE);
        const bool isDone = volume()->Delete(hFile, nullptr) == VVS_Success;
        Close(hFile);
        if (isDone)
            own.path.clear();
    }
    // A failure may keep it from being read; something else is never read.
    void Check(const Document& own) {
        void* const hFile = OpenDocument(volume(), own.path, GENERIC_READ);
        const std::string content = Read(hFile);
        Close(hFile);
        const std::lock_guard guard(m_mutex);
        if (!content.starts_with("<V") && content != own.content)
            m_problems.push_back(Narrow(own.path) + " reads " + content.substr(0, 40) + ", not " + own.content.substr(0, 40));
    }
    void Step(Document& own, Random& random) {
        const int shared = static_cast<int>(random() % kShared);
        const unsigned what = own.path.empty() ? 9 : random() % 10;
        if (what == 0)
            DeleteIt(own);
        else if (const std::wstring to = AnyPath(own.number, random); what < 3 && MoveIt(own.path, to, what == 1) == VVS_Success)
            own.path = to;
        else if (what == 3)
            MoveIt(AnyPath(shared, random), AnyPath(shared, random), random() % 2);
        else if (void* const hFile = what == 4 ? OpenDocument(volume(), DocumentPath(shared, 0), kReadWrite) : nullptr)
            Replace(volume(), hFile, Version(shared, ++m_versions)), Close(hFile);
        else if (what < 7)
            Check(own);
        else
            Save(own, random, what == 7);
    }
    void ExpectWholeVersions();

    std::atomic<int> m_versions{1000};
    std::mutex m_mutex;
    std::vector<std::string> m_problems;  // the test framework takes no reports from other threads here
};

// Everything that stands in the folders is one version of its document whole, and no shared document is missing.
void WorkingUnderLoad::ExpectWholeVersions() {
    bool isThere[kShared] = {};
    for (const auto& [file, bytes] : Disk()) {
        const std::string content = file.ends_with(L".zip") ? ContainerContent(file) : bytes;
        const int document = DocumentOf(content);
        EXPECT_TRUE(content.empty() || VersionOf(content) >= 0) << Narrow(file) << " holds " << content.substr(0, 60);
        EXPECT_TRUE(content.empty() || file.find(L"\\d" + std::to_wstring(document)) != file.npos) << Narrow(file);
        if (document >= 0 && document < kShared)
            isThere[document] = true;
    }
    for (const std::wstring& edit : TrackedEdits())  // of documents that were in use when they were to be deleted
        EXPECT_LE(0, VersionOf(ReadRaw(edit))) << ReadRaw(edit).substr(0, 40) << "... waits";
    ExpectUnsavedEdits(TrackedEdits().size());
    for (int document = 0; document < kShared; ++document)
        EXPECT_TRUE(isThere[document]) << "document " << document << " is lost";
}

TEST_F(WorkingUnderLoad, EqualsTheModelWhateverFails) {
    const unsigned seed = Setting("QUELCRYPT_TEST_SEED", 1), steps = Setting("QUELCRYPT_TEST_STEPS", 100);
    MakeFolder(L"Docs\\sub");
    for (int document = 0; document < kShared; ++document)
        MakeEncrypted(DocumentPath(document, 0), Version(document, 0));
    std::vector<std::vector<Document>> own(kThreads);
    std::vector<std::thread> threads;
    std::atomic<int> left{kThreads};
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int number = 0; number < kOwn; ++number)
            own[thread].push_back({kShared + thread * kOwn + number, {}, {}});
        threads.emplace_back([&, thread, random = Random(seed + static_cast<unsigned>(thread))]() mutable {
            for (unsigned step = 0; step < steps; ++step)
                Step(own[thread][random() % kOwn], random);
            --left;
        });
    }
    constexpr Fault faults[] = {Fault::Null, Fault::Raise, Fault::Error, Fault::OutOfMemory};
    for (Random random(seed); left > 0; Sleep(random() % 60)) {
        TestCompanion_FailNth(nullptr, 1 + random() % 40, faults[random() % 4], random() % 8 == 0);
        Sleep(random() % 60);
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
    }
    for (std::thread& thread : threads)
        thread.join();
    Configure(std::string(DefaultConfiguration()) + " ");  // an enumeration that ended early is believed until then
    for (const std::string& problem : m_problems)
        ADD_FAILURE() << problem;
    for (const auto& documents : own)
        for (const Document& document : documents)
            if (!document.path.empty()) {  // reading it also saves the edit that waits for it
                EXPECT_TRUE(document.content == Get(document.path)) << Narrow(document.path);
                const std::string plain = ReadRaw(NativePath(document.path));
                EXPECT_TRUE(document.content == (plain == "<none>" ? ContainerContent(ContainerPath(document.path)) : plain));
            }
    for (int document = 0; document < kShared; ++document)
        for (int place = 0; place < kPlaces; ++place)
            Get(DocumentPath(document, place));
    ExpectWholeVersions();
    std::printf("seed %u, %u steps of %d threads, %d versions written\n", seed, steps, kThreads, m_versions - 1000);
}
