// Any number of threads may call: what they write is never mixed and never lost, and nothing is left over at the end.
#include "harness/ConflictsAndBackups.h"
#include "harness/VolumeFixture.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

class ManyThreads : public VolumeFixture {
protected:
    static constexpr int kThreads = 4;

    void SetUp() override {
        VolumeFixture::SetUp();
        TestCompanion_SetLevel(1);  // no time for a trace
        m_user = std::make_unique<PromptedUser>();
    }
    void TearDown() override {
        EXPECT_EQ(0, m_user->Prompts()) << "a save failed";
        m_user.reset();
        VolumeFixture::TearDown();
    }

    // Runs work(0) to work(kThreads - 1) at once and then fails the test for each problem they reported: the test
    // framework itself takes no reports from other threads here.
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
        for (const std::string& problem : m_problems)
            ADD_FAILURE() << problem;
        m_problems.clear();
    }
    void Problem(const std::string& text) {
        const std::lock_guard guard(m_mutex);
        m_problems.push_back(text);
    }
    bool Ok(VirtualVolumeStatus status, const char* what) {
        if (status != VVS_Success)
            Problem(std::string(what) + " answered " + StatusName(status));
        return status == VVS_Success;
    }

    void* OpenIn(const std::wstring& path, std::uint32_t access = kReadWrite, std::uint32_t disposition = OPEN_EXISTING) {
        void* hFile = nullptr;
        return Ok(Open(&hFile, path, access, disposition), "OpenFile") ? hFile : nullptr;
    }
    std::string ReadAll(void* hFile) {
        std::string content(1 << 20, '\0');
        std::uint32_t done = 0;
        Ok(volume()->ReadFile(hFile, 0, content.data(), 1 << 20, &done, nullptr), "ReadFile");
        content.resize(done);
        return content;
    }
    void WriteIn(void* hFile, const std::string& content, std::uint64_t offset) {
        std::uint32_t done = 0;
        if (Ok(volume()->WriteFile(hFile, offset, content.data(), static_cast<std::uint32_t>(content.size()), &done, nullptr), "WriteFile") &&
            done != content.size())
            Problem("WriteFile did only a part");
    }
    void Replace(const std::wstring& path, const std::string& content, std::uint32_t disposition = OPEN_EXISTING) {
        void* const hFile = OpenIn(path, kReadWrite, disposition);
        Ok(volume()->SetFileSize(hFile, 0, nullptr), "SetFileSize");
        WriteIn(hFile, content, 0);
        Close(hFile);
    }
    std::string ReadIn(const std::wstring& path) {
        void* const hFile = OpenIn(path, GENERIC_READ);
        const std::string content = hFile ? ReadAll(hFile) : "<closed>";
        Close(hFile);
        return content;
    }

    // A content that tells who wrote it, and when it is not whole.
    static std::string ContentOf(int thread, int round) {
        const std::string word = "<" + std::to_string(thread) + "," + std::to_string(round) + ">";
        std::string content = word;
        for (int count = (thread * 977 + round * 131) % 9000; count > 0; --count)
            content += word;
        return content;
    }
    static bool IsWhole(const std::string& content) {
        int thread = -1;
        int round = -1;
        return sscanf(content.c_str(), "<%d,%d>", &thread, &round) == 2 && content == ContentOf(thread, round);
    }

private:
    std::unique_ptr<PromptedUser> m_user;  // should a save fail, nobody is to wait for an answer
    std::mutex m_mutex;
    std::vector<std::string> m_problems;
};

TEST_F(ManyThreads, ReadAndReplaceSharedFiles) {
    const std::wstring paths[] = {L"Docs\\a.txt", L"Docs\\b.txt", L"Other\\a.txt"};
    for (const std::wstring& path : paths)
        Put(path, ContentOf(9, 9));
    AtOnce([&](int thread) {
        for (int round = 0; round < 25; ++round) {
            const std::wstring& path = paths[(thread + round * round) % 3];
            if ((thread + round) % 3 == 0)
                Replace(path, ContentOf(thread, round));
            else if (!IsWhole(ReadIn(path)))
                Problem("Something was read that nobody had written");
        }
    });
    for (const wchar_t* folder : {L"Docs", L"Other"})
        for (const std::wstring& container : FilesBelow(NativePath(folder)))
            EXPECT_TRUE(IsWhole(ContainerContent(container))) << Narrow(container);
    for (const std::wstring& path : paths)
        EXPECT_TRUE(IsWhole(Get(path)));
}

// Whoever adds a word reads the file first. If a save ever went over another's, that one's word would be in no file.
TEST_F(ManyThreads, LoseNobodysWord) {
    constexpr int rounds = 12;
    Put(L"Docs\\a.txt", "begin ");
    const auto wordOf = [](int thread, int round) { return std::to_string(thread) + "-" + std::to_string(round) + " "; };
    AtOnce([&](int thread) {
        for (int round = 0; round < rounds; ++round) {
            void* const hFile = OpenIn(L"Docs\\a.txt");
            const std::string before = hFile ? ReadAll(hFile) : "";
            if (before.compare(0, 6, "begin ") != 0 || before.back() != ' ')
                Problem("A half was read");
            WriteIn(hFile, wordOf(thread, round), before.size());
            Close(hFile);
        }
    });
    std::string everything;
    for (const std::wstring& container : FilesBelow(NativePath(L"Docs"))) {
        const std::string content = ContainerContent(container);
        EXPECT_EQ(0u, content.find("begin ")) << Narrow(container);
        everything += ' ' + content;
    }
    for (int thread = 0; thread < kThreads; ++thread)
        for (int round = 0; round < rounds; ++round)
            EXPECT_NE(std::string::npos, everything.find(' ' + wordOf(thread, round))) << wordOf(thread, round) << "is lost";
}

TEST_F(ManyThreads, ShareNothingBetweenFilesOfTheirOwn) {
    constexpr int rounds = 15;
    const auto name = [](int thread) { return std::to_wstring(thread) + L".txt"; };
    AtOnce([&](int thread) {
        for (int round = 0; round < rounds; ++round)
            for (const wchar_t* folder : {L"Docs\\", L"Plain\\"}) {
                const std::wstring path = folder + name(thread);
                Replace(path, ContentOf(thread, round), round == 0 ? CREATE_NEW : round % 2 ? OPEN_EXISTING : CREATE_ALWAYS);
                if (ReadIn(path) != ContentOf(thread, round))
                    Problem("A thread read something else than it had written");
            }
    });
    for (int thread = 0; thread < kThreads; ++thread) {
        EXPECT_EQ(ContentOf(thread, rounds - 1), ContainerContent(ContainerPath(L"Docs\\" + name(thread))));
        EXPECT_EQ(ContentOf(thread, rounds - 1), ReadRaw(NativePath(L"Plain\\" + name(thread))));
    }
    EXPECT_EQ(static_cast<std::size_t>(kThreads), FilesBelow(NativePath(L"Docs")).size()) << "without a conflict";
    EXPECT_EQ(static_cast<std::size_t>(kThreads), RetainedCopies().size());
}

TEST_F(ManyThreads, SaveOneFileAtOnce) {
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        const std::wstring name = std::to_wstring(round) + L".txt";
        Put(L"Docs\\" + name, "base");
        void* handles[kThreads];
        for (int thread = 0; thread < kThreads; ++thread) {
            handles[thread] = MustOpen(L"Docs\\" + name);
            EXPECT_OK(volume()->SetFileSize(handles[thread], 0, nullptr));
            EXPECT_OK(Write(handles[thread], ContentOf(thread, round)));
        }
        AtOnce([&](int thread) { Close(handles[thread]); });
        std::set<std::string> found{ContainerContent(ContainerPath(L"Docs\\" + name))};
        for (int number = 1; number < kThreads; ++number)
            found.insert(ContainerContent(ContainerPath(L"Docs\\" + ConflictName(name, number))));
        std::set<std::string> written;
        for (int thread = 0; thread < kThreads; ++thread)
            written.insert(ContentOf(thread, round));
        EXPECT_EQ(written, found) << "one under the file's name, the others as conflict copies";
        EXPECT_EQ(static_cast<std::size_t>((round + 1) * kThreads), FilesBelow(NativePath(L"Docs")).size());
    }
}

TEST_F(ManyThreads, UseOneHandle) {
    constexpr std::size_t block = 4096;
    constexpr int rounds = 60;
    const std::string base(block * kThreads, '.');
    MakeContainer(ContainerPath(L"Docs\\a.bin"), L"a.bin", base);
    void* const hFile = MustOpen(L"Docs\\a.bin");
    std::atomic<int> finished{0};
    std::string expected = base;
    EXPECT_EQ(1u, CallsDuring("Quelcrypt_FileReaderFactory", [&] {
                  AtOnce([&](int thread) {
                      const std::size_t offset = block * static_cast<std::size_t>(thread);
                      std::string last(block, '.');
                      for (int round = 0;; ++round) {
                          const std::string content(block, static_cast<char>('A' + (thread * 7 + round) % 26));
                          std::uint32_t done = 0;
                          const auto status = volume()->WriteFile(hFile, offset, content.data(), block, &done, nullptr);
                          if (status == VVS_InvalidParameter)
                              break;  // closed by the other
                          if (Ok(status, "WriteFile"))
                              last = content;
                          std::string read(block, ' ');
                          if (volume()->ReadFile(hFile, offset, read.data(), block, &done, nullptr) == VVS_Success && read != last)
                              Problem("A thread read something else than it had written");
                          VirtFindData record{};
                          volume()->GetFileInfo(hFile, &record);
                          if (thread == 0 && round == rounds)
                              Close(hFile);
                      }
                      expected.replace(offset, block, last);
                      ++finished;
                  });
              }))
        << "whoever comes first, it is decrypted once";
    EXPECT_EQ(kThreads, finished);
    EXPECT_EQ(expected, ContainerContent(ContainerPath(L"Docs\\a.bin"))) << "all that was written before the close was saved";
}

TEST_F(ManyThreads, CreateListLockMoveAndDelete) {
    Put(L"Docs\\shared.txt", ContentOf(9, 9));
    AtOnce([&](int thread) {
        const std::wstring own = L"Docs\\" + std::to_wstring(thread) + L".txt";
        const std::wstring moved = (thread % 2 ? L"Other\\" : L"Plain\\") + std::to_wstring(thread) + L".txt";
        for (int round = 0; round < 8; ++round) {
            Replace(own, ContentOf(thread, round), CREATE_NEW);
            LockInfo lockInfo = NewLock();
            Ok(volume()->Lock(own.c_str(), &lockInfo), "Lock");
            Replace(own, ContentOf(thread, round + 1));
            // Another's file: there or not, but never half; locked or not, it can be read.
            void* hOther = nullptr;
            const std::wstring other = L"Docs\\" + std::to_wstring((thread + 1) % kThreads) + L".txt";
            if (Open(&hOther, other, GENERIC_READ) == VVS_Success) {
                const std::string seen = Read(hOther);
                if (seen[0] == '<' && seen[1] != 'V' && !IsWhole(seen))
                    Problem("Half of a file was read");
                Close(hOther);
            }
            VirtFindData record{};
            void* const hFind = volume()->FindFirstFileW(L"Docs\\*", &record);
            while (hFind && volume()->FindNextFileW(hFind, &record)) {
            }
            volume()->FindClose(hFind);
            Ok(volume()->Unlock(own.c_str(), lockInfo.token), "Unlock");
            if (ReadIn(own) != ContentOf(thread, round + 1))
                Problem("What was saved under the lock is not there");
            // Another may be reading it just now.
            VirtualVolumeStatus moves;
            while ((moves = volume()->MoveFileW(own.c_str(), moved.c_str(), nullptr)) == VSS_SharingViolation)
                Sleep(1);
            Ok(moves, "MoveFileW");
            if (ReadIn(moved) != ContentOf(thread, round + 1))
                Problem("What was moved is not there");
            void* const hFile = OpenIn(moved, DELETE);
            Ok(volume()->Delete(hFile, nullptr), "Delete");
            Close(hFile);
        }
    });
    EXPECT_EQ(std::vector<std::wstring>{L"shared.txt"}, List(L"Docs\\*"));
    EXPECT_TRUE(List(L"Other\\*").empty());
    EXPECT_TRUE(List(L"Plain\\*").empty());
}
