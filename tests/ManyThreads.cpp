// Any number of threads may call: what they write is never mixed and never lost.
#include "harness/Prompts.h"
#include "harness/VolumeFixture.h"

#include <cstdlib>
#include <random>

class ManyThreads : public VolumeFixture {
protected:
    ManyThreads() : VolumeFixture(LogLevel_Error) {}

    static constexpr int kThreads = 4;

    // Runs work(0) to work(kThreads - 1) at once and then fails the test for each problem they reported: the test framework itself
    // takes no reports from other threads here.
    void AtOnce(const std::function<void(int)>& work) {
        std::atomic<int> missing{kThreads};  // std::latch sometimes leaves a thread asleep here
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&, thread] {
                for (--missing; missing > 0;)
                    std::this_thread::yield();
                work(thread);
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(std::vector<std::string>{}, m_problems);
    }
    void Problem(const std::string& text) {
        const std::lock_guard guard(m_mutex);
        m_problems.push_back(text);
    }
    static std::string WordOf(int thread, int round) { return " " + std::to_string(thread) + "-" + std::to_string(round) + " "; }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_problems;
};

// Whoever adds a word reads the file first. If a save ever went over another's, that one's word would be in no file.
TEST_F(ManyThreads, LoseNobodysWord) {
    constexpr int rounds = 12;
    Put(L"Docs\\a.txt", "begin ");
    AtOnce([&](int thread) {
        for (int round = 0; round < rounds; ++round) {
            void* hFile = nullptr;
            Open(&hFile, L"Docs\\a.txt");
            const std::string before = Read(hFile);
            if (before.compare(0, 6, "begin ") != 0 || before.back() != ' ')
                Problem("A half was read: " + before);
            if (Write(hFile, WordOf(thread, round), before.size()) != VVS_Success)
                Problem("A word was not taken");
            Close(hFile);
        }
    });
    EXPECT_EQ(0, prompts::g_count) << "a save failed";
    std::string everything;
    for (const std::wstring& container : FilesBelow(NativePath(L"Docs"))) {
        EXPECT_EQ(0u, ContainerContent(container).find("begin ")) << Narrow(container);
        everything += ContainerContent(container);
    }
    for (int thread = 0; thread < kThreads; ++thread)
        for (int round = 0; round < rounds; ++round)
            EXPECT_NE(std::string::npos, everything.find(WordOf(thread, round))) << WordOf(thread, round) << "is lost";
}

TEST_F(ManyThreads, UseOneHandle) {
    constexpr std::size_t block = 4096;
    constexpr int rounds = 60;
    std::string expected(block * kThreads, '.');
    MakeEncrypted(L"Docs\\a.bin", expected);
    void* const hFile = MustOpen(L"Docs\\a.bin");
    const auto work = [&](int thread) {
        const std::size_t offset = block * static_cast<std::size_t>(thread);
        std::string last(block, '.');
        for (int round = 0;; ++round) {
            const std::string content(block, static_cast<char>('A' + (thread * 7 + round) % 26));
            if (Write(hFile, content, offset) != VVS_Success)
                break;  // closed by the other
            last = content;
            const std::string read = Read(hFile, offset, block);
            if (read[0] != '<' && read != last)
                Problem("A thread read something else than it had written");
            if (thread == 0 && round == rounds)
                Close(hFile);
        }
        expected.replace(offset, block, last);
    };
    const auto atOnce = [&] { AtOnce(work); };
    EXPECT_EQ(1u, CallsDuring("Quelcrypt_FileReaderFactory", atOnce)) << "whoever comes first, it is decrypted once";
    EXPECT_EQ(0, prompts::g_count) << "a save failed";
    EXPECT_TRUE(expected == Stored(L"Docs\\a.bin")) << "all that was written before the close was saved";
}

// Threads that work at once while the companion library fails now and then. Each knows what documents of its own hold, which must
// be so at any moment; documents that all share stay whole versions. QUELCRYPT_TEST_SEED and QUELCRYPT_TEST_STEPS set other ones.
namespace {

constexpr int kShared = 3;  // documents 0 to 2; each thread has three more
using Random = std::minstd_rand;

unsigned Setting(const char* name, unsigned otherwise) {
    const char* const given = std::getenv(name);
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

// The last place has no policy: what is written there stands where it is written.
std::wstring PathOf(int document, unsigned place) {
    static const wchar_t* const places[] = {L"Docs\\", L"Docs\\sub\\", L"Other\\", L"Plain\\"};
    return places[place % 4] + (L"d" + std::to_wstring(document)) + L".txt";
}

// Tells what it is: a mixture, a part or a foreign content shows.
std::string Version(int document, int version) {
    return std::to_string(document) + " version " + std::to_string(version) + ";" +
           std::string(static_cast<std::size_t>(1000 + version * 7919 % 90'000), static_cast<char>('a' + version % 26)) + ".";
}
bool IsVersionOf(int document, const std::string& content) {
    int number = -1, version = -1;
    return content.empty() || (std::sscanf(content.c_str(), "%d version %d;", &number, &version) == 2 && number == document &&
                               content == Version(document, version));
}

}  // namespace

class WorkingUnderLoad : public ManyThreads {
protected:
    struct Document {
        int number;
        std::wstring path;  // empty: it does not exist
        std::string content;
    };
    bool Moves(const std::wstring& from, const std::wstring& to, bool isRename) {
        return (isRename ? Rename(from, to) : Move(from, to)) == VVS_Success;
    }
    void Step(Document& own, Random& random) {
        const int shared = static_cast<int>(random() % kShared);
        const std::wstring path = own.path.empty() ? PathOf(own.number, random()) : own.path, to = PathOf(own.number, random());
        const std::string content = Version(own.number, ++m_versions);
        LockInfo lockInfo = NewLock();
        const unsigned what = own.path.empty() ? 9 : random() % 10;
        if (what == 0 && Delete(path) == VVS_Success)
            own.path.clear();
        else if ((what == 1 || what == 2) && Moves(path, to, what == 1))
            own.path = to;
        else if (what == 3)
            Moves(PathOf(shared, random()), PathOf(shared, random()), random() % 2);
        else if (what == 4)
            Takes(PathOf(shared, 0), Version(shared, m_versions));
        else if (what == 5 && volume()->Lock(path.c_str(), &lockInfo) == VVS_Success) {
            own.content = Takes(path, content) ? content : own.content;
            for (int attempt = 0; attempt < 2 && volume()->Unlock(path.c_str(), lockInfo.token) != VVS_Success; ++attempt) {
            }  // the first one may be failed
        } else if (what == 6)
            Check(own);
        else if (what > 6 && Takes(path, content, own.path.empty() ? CREATE_NEW : OPEN_EXISTING))
            own = {own.number, path, content};
    }
    // A failure may keep it from being read; something else is never read.
    void Check(const Document& own) {
        const std::string content = Get(own.path);
        if (!content.starts_with("<V") && content != own.content)
            Problem(Narrow(own.path) + " reads " + content.substr(0, 40) + ", not " + own.content.substr(0, 40));
    }

    std::atomic<int> m_versions{1000};
};

TEST_F(WorkingUnderLoad, EqualsTheModelWhateverFails) {
    const unsigned seed = Setting("QUELCRYPT_TEST_SEED", 1), steps = Setting("QUELCRYPT_TEST_STEPS", 100);
    MakeFolder(L"Docs\\sub");
    for (int document = 0; document < kShared; ++document)
        MakeEncrypted(PathOf(document, 0), Version(document, 0));
    std::vector<Document> own(kThreads * 3);
    AtOnce([&](int thread) {
        Random random(seed + static_cast<unsigned>(thread));
        constexpr Fault faults[] = {Fault::None, Fault::Null, Fault::Raise, Fault::Error, Fault::OutOfMemory};
        for (unsigned step = 0; step < steps; ++step) {
            const unsigned which = static_cast<unsigned>(thread) * 3 + random() % 3;
            own[which].number = kShared + static_cast<int>(which);
            Companion().FailNth(nullptr, 1 + random() % 40, faults[random() % 5], random() % 16 == 0);
            Step(own[which], random);
        }
    });
    Companion().FailNth();
    Configure(std::string(DefaultConfiguration()) + " ");  // an enumeration that ended early is believed until then
    for (const Document& document : own)
        if (!document.path.empty()) {  // reading it also saves the edit that waits for it
            EXPECT_TRUE(document.content == Get(document.path)) << Narrow(document.path);
            const std::string plain = ReadRaw(NativePath(document.path));
            EXPECT_TRUE(document.content == (plain == "<none>" ? ContainerContent(ContainerPath(document.path)) : plain));
        }
    std::string names;
    for (const std::wstring& edit : TrackedEdits())  // of documents that were in use when they were to be deleted
        names += Narrow(edit);
    m_expectedUnsaved = TrackedEdits().size();
    for (const auto& [file, bytes] : Disk()) {
        const int document = _wtoi(file.c_str() + file.rfind(L"\\d") + 2);
        EXPECT_TRUE(IsVersionOf(document, file.ends_with(L".zip") ? ContainerContent(file) : bytes)) << Narrow(file);
        names += Narrow(file);
    }
    for (int document = 0; document < kShared; ++document)
        EXPECT_NE(names.npos, names.find("\\d" + std::to_string(document))) << "document " << document << " is lost";
    std::printf("seed %u, %u steps of %d threads, %d versions\n", seed, steps, kThreads, m_versions - 1000);
}
