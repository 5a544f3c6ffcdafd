// Threads and processes that work at once while the companion library fails now and then. Each thread keeps a model of
// documents of its own, which must hold at any moment; documents that all share stay whole versions.
#include "harness/VolumeFixture.h"
#include "load/Documents.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

namespace {

constexpr int kThreads = 4;
constexpr int kProcesses = 2;
constexpr int kShared = 3;  // documents 0 to 2, which the processes work on too
constexpr int kOwn = 3;     // documents of each thread

unsigned Setting(const char* name, unsigned otherwise) {
    const char* const given = std::getenv(name);
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

// Where a document stands and what it holds, as its owner knows it.
struct Model {
    int document = 0;
    std::wstring path;  // empty: it does not exist
    std::string content;
    std::string history;  // what its owner did, and how that ended

    void Note(const char* what, const std::wstring& where, const char* end) {
        history += std::string(what) + " " + Narrow(where) + " " + end + "; ";
        if (history.size() > 2000)
            history.erase(0, 1000);
    }
};

}  // namespace

class WorkingUnderLoad : public VolumeFixture {
protected:
    WorkingUnderLoad() : VolumeFixture(LogLevel_Error) {}

    class Worker;

    HANDLE StartProcess(unsigned seed, unsigned seconds) const;
    void ExpectModel(const Model& model);
    void ExpectWholeVersions();
    void ExpectNothingForgotten(const std::vector<Model>& models);
    void Problem(const std::string& text) {
        const std::lock_guard guard(m_mutex);
        m_problems.push_back(text);
    }

    std::atomic<int> m_versions{1000};
    std::atomic<int> m_steps{0};
    std::atomic<int> m_checked{0};
    std::mutex m_mutex;
    std::vector<std::string> m_problems;  // the test framework takes no reports from other threads here
};

class WorkingUnderLoad::Worker {
public:
    Worker(WorkingUnderLoad& test, int thread, unsigned seed) : m_test(test), m_volume(test.NewVolume()), m_random(seed) {
        for (int own = 0; own < kOwn; ++own)
            m_models.push_back({kShared + thread * kOwn + own, {}, {}, {}});
    }
    ~Worker() { m_volume->Release(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void WorkUntil(ULONGLONG end) {
        while (GetTickCount64() < end) {
            ++m_test.m_steps;
            Model& model = m_models[m_random() % kOwn];
            switch (m_random() % 12) {
                case 0: Delete(model); break;
                case 1:
                case 2: Move(model, false); break;
                case 3: Move(model, true); break;
                case 4: List(); break;
                case 5: EditShared(); break;
                case 6: MoveShared(); break;
                case 7:
                case 8: Check(model); break;
                case 9: Save(model, true); break;
                default: Save(model, false); break;
            }
        }
    }
    const std::vector<Model>& Models() const { return m_models; }

private:
    std::wstring PathOf(int document) { return DocumentPath(document, static_cast<int>(m_random() % kPlaces)); }
    void* Open(const std::wstring& path, std::uint32_t access) { return OpenDocument(m_volume, path, access); }
    VirtualVolumeStatus Rename(const std::wstring& from, const std::wstring& to) {
        void* const hFile = Open(from, kReadWrite);
        const VirtualVolumeStatus status = hFile ? m_volume->RenameFile(hFile, nullptr, to.c_str(), nullptr) : VVS_GeneralError;
        m_volume->CloseFile(hFile, nullptr);
        return status;
    }
    // What was written counts as the content once the volume has taken it, whatever becomes of the save.
    void Save(Model& model, bool locked) {
        const bool isNew = model.path.empty();
        const std::wstring path = isNew ? PathOf(model.document) : model.path;
        LockInfo lockInfo = m_test.NewLock();
        if (locked && (isNew || m_volume->Lock(path.c_str(), &lockInfo) != VVS_Success))
            return;
        if (void* const hFile =
                OpenDocument(m_volume, path, kReadWrite, isNew ? CREATE_NEW : OPEN_EXISTING, locked ? lockInfo.token : nullptr)) {
            const std::string content = Version(model.document, ++m_test.m_versions);
            const bool isTaken = Replace(m_volume, hFile, content);
            if (isTaken)
                model.path = path, model.content = content;
            else if (isNew)
                m_volume->Delete(hFile, nullptr);
            m_volume->CloseFile(hFile, nullptr);
            model.Note(locked ? "save locked" : isNew ? "save new" : "save", path, isTaken ? "written" : "not written");
        }
        // Not even then does a lock stay.
        if (locked && m_volume->Unlock(path.c_str(), lockInfo.token) != VVS_Success)
            m_volume->Unlock(path.c_str(), lockInfo.token);
    }
    void Move(Model& model, bool rename) {
        if (model.path.empty())
            return;
        const std::wstring to = PathOf(model.document);
        const VirtualVolumeStatus status = rename ? Rename(model.path, to) : m_volume->MoveFileW(model.path.c_str(), to.c_str(), nullptr);
        model.Note(rename ? "rename to" : "move to", to, StatusName(status));
        if (status == VVS_Success)
            model.path = to;
    }
    void Delete(Model& model) {
        void* const hFile = model.path.empty() ? nullptr : Open(model.path, DELETE);
        if (!hFile)
            return;
        const bool isDone = m_volume->Delete(hFile, nullptr) == VVS_Success;
        m_volume->CloseFile(hFile, nullptr);
        model.Note("delete", model.path, isDone ? "done" : "not done");
        if (isDone)
            model.path.clear();
    }
    // A failure may keep it from being read; something else is never read.
    void Check(const Model& model) {
        void* const hFile = model.path.empty() ? nullptr : Open(model.path, GENERIC_READ);
        std::string content(200'000, '\0');
        std::uint32_t done = 0;
        if (hFile && m_volume->ReadFile(hFile, 0, content.data(), 200'000, &done, nullptr) == VVS_Success) {
            content.resize(done);
            if (content != model.content)
                m_test.Problem(Narrow(model.path) + " reads " + content.substr(0, 40) + ", not " + model.content.substr(0, 40));
            ++m_test.m_checked;
        }
        m_volume->CloseFile(hFile, nullptr);
    }
    void List() {
        VirtFindData findData{};
        for (const wchar_t* spec : {L"*", L"Docs\\*", L"Docs\\sub\\*", L"Other\\*", L"Plain\\*"}) {
            void* const hFind = m_volume->FindFirstFileW(spec, &findData);
            while (hFind && m_volume->FindNextFileW(hFind, &findData)) {
            }
            m_volume->FindClose(hFind);
        }
    }
    void EditShared() {
        const int document = static_cast<int>(m_random() % kShared);
        const std::wstring path = DocumentPath(document, static_cast<int>(m_random() % kPlainPlace));  // others may look at plain halves
        void* const hFile = Open(path, kReadWrite);
        if (hFile)
            Replace(m_volume, hFile, Version(document, ++m_test.m_versions));
        m_volume->CloseFile(hFile, nullptr);
    }
    void MoveShared() {
        const int document = static_cast<int>(m_random() % kShared);
        const std::wstring from = PathOf(document), to = PathOf(document);
        switch (m_random() % 3) {
            case 0: m_volume->MoveFileW(from.c_str(), to.c_str(), nullptr); break;
            case 1: m_volume->CopyFileW(from.c_str(), to.c_str(), nullptr); break;
            default: Rename(from, to); break;
        }
    }

    WorkingUnderLoad& m_test;
    IVirtualVolume* m_volume;
    std::minstd_rand m_random;
    std::vector<Model> m_models;
};

HANDLE WorkingUnderLoad::StartProcess(unsigned seed, unsigned seconds) const {
    wchar_t program[MAX_PATH]{};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::wstring own = root() + L"\\temp of " + std::to_wstring(seed);
    std::filesystem::create_directories(own);
    std::wstring command = L"\"" + std::filesystem::path(program).parent_path().wstring() + L"\\volume_victim.exe\" " + std::to_wstring(seed) +
                           L" \"" + own + L"\" " + std::to_wstring(seconds);
    const HANDLE nowhere = CreateFileW(L"NUL", GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    SetHandleInformation(nowhere, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = nowhere;
    PROCESS_INFORMATION process{};
    EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process));
    CloseHandle(nowhere);
    CloseHandle(process.hThread);
    return process.hProcess;
}

// Reading a document also saves the edit that waits for it.
void WorkingUnderLoad::ExpectModel(const Model& model) {
    if (model.path.empty())
        return;
    const std::string shown = Get(model.path);
    const std::string plain = ReadRaw(NativePath(model.path));
    const std::string stored = plain == "<none>" ? ContainerContent(ContainerPath(model.path)) : plain;
    EXPECT_TRUE(model.content == shown && model.content == stored)
        << Narrow(model.path) << " shows " << shown.substr(0, 40) << ", stores " << stored.substr(0, 40) << " instead of "
        << model.content.substr(0, 40) << "\nhistory: " << model.history;
}

// Everything that stands in the folders is one version of its document whole, and no shared document is missing.
void WorkingUnderLoad::ExpectWholeVersions() {
    bool isThere[kShared] = {};
    for (const auto& [file, bytes] : Disk()) {
        const std::string content = file.ends_with(L".zip") ? ContainerContent(file) : bytes;
        if (content.empty())  // held a place for a move that came to nothing while others looked at it
            continue;
        const int document = DocumentOf(content);
        EXPECT_NE(-1, VersionOf(content)) << Narrow(file) << " holds " << content.substr(0, 60) << "... of " << content.size();
        const std::wstring name = L"\\d" + std::to_wstring(document);
        EXPECT_NE(file.npos, file.rfind(name)) << Narrow(file);
        if (document >= 0 && document < kShared)
            isThere[document] = true;
    }
    for (int document = 0; document < kShared; ++document)
        EXPECT_TRUE(isThere[document]) << "document " << document << " is lost";
}

// An edit may wait for a document that was in use when it was to be deleted, but for none that was just read.
void WorkingUnderLoad::ExpectNothingForgotten(const std::vector<Model>& models) {
    for (const std::wstring& edit : TrackedEdits()) {
        EXPECT_NE(-1, VersionOf(ReadRaw(edit))) << ReadRaw(edit).substr(0, 40) << "... waits";
        const std::string tracking = ReadRaw(edit + L".hvf");
        for (const Model& model : models)
            EXPECT_TRUE(model.path.empty() || tracking.find(Narrow(ContainerPath(model.path)) + "]") == std::string::npos)
                << tracking.substr(0, 400) << "\nhistory: " << model.history;
    }
    ExpectUnsavedEdits(TrackedEdits().size());
}

// Switches failures of the companion library on and off until the time is over; they are off at the end.
static void FailNowAndThen(ULONGLONG end, unsigned seed) {
    std::minstd_rand random(seed);
    constexpr Fault faults[] = {Fault::Null, Fault::Raise, Fault::Error, Fault::OutOfMemory};
    while (GetTickCount64() < end) {
        TestCompanion_FailNth(nullptr, 1 + random() % 40, faults[random() % 4], random() % 8 == 0);
        Sleep(random() % 60);
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
        Sleep(random() % 60);
    }
}

TEST_F(WorkingUnderLoad, EqualsTheModelWhateverFails) {
    const unsigned seed = Setting("QUELCRYPT_TEST_SEED", 1);
    const unsigned seconds = Setting("QUELCRYPT_TEST_SECONDS", 6);
    std::printf("seed %u for %u s (QUELCRYPT_TEST_SEED, QUELCRYPT_TEST_SECONDS)\n", seed, seconds);
    MakeFolder(L"Docs\\sub");
    for (int document = 0; document < kShared; ++document)
        MakeEncrypted(DocumentPath(document, 0), Version(document, 0));

    std::vector<HANDLE> processes;
    for (unsigned index = 0; index < kProcesses; ++index)
        processes.push_back(StartProcess(seed + 100 + index, seconds));
    const ULONGLONG end = GetTickCount64() + 1000 * seconds;
    std::vector<std::unique_ptr<Worker>> workers;
    std::vector<std::thread> threads;
    for (int index = 0; index < kThreads; ++index)
        workers.push_back(std::make_unique<Worker>(*this, index, seed + static_cast<unsigned>(index)));
    for (const auto& worker : workers)
        threads.emplace_back([&worker, end] { worker->WorkUntil(end); });
    threads.emplace_back([seed, end] { FailNowAndThen(end, seed); });
    for (std::thread& thread : threads)
        thread.join();
    for (const HANDLE process : processes) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 60'000));
        DWORD code = 1;
        EXPECT_TRUE(GetExitCodeProcess(process, &code) && code == 0) << "a process ended with " << code;
        CloseHandle(process);
    }
    Configure(std::string(DefaultConfiguration()) + " ");  // an enumeration that ended early is believed until then
    for (const std::string& problem : m_problems)
        ADD_FAILURE() << problem;
    std::vector<Model> models;
    for (const auto& worker : workers)
        models.insert(models.end(), worker->Models().begin(), worker->Models().end());
    for (const Model& model : models)
        ExpectModel(model);
    for (int document = 0; document < kShared; ++document)
        for (int place = 0; place < kPlaces; ++place)
            Get(DocumentPath(document, place));
    ExpectWholeVersions();
    ExpectNothingForgotten(models);
    workers.clear();
    std::printf("%d steps, %d versions written, %d contents checked, %zu edits waiting\n", m_steps.load(), m_versions - 1000,
                m_checked.load(), TrackedEdits().size());
}
