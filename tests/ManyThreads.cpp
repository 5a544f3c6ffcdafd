// Any number of threads may call: what they write is never mixed and never lost. Longer and of more kinds: WorkingUnderLoad.cpp.
#include "harness/Prompts.h"
#include "harness/VolumeFixture.h"

class ManyThreads : public VolumeFixture {
protected:
    ManyThreads() : VolumeFixture(LogLevel_Error) {}

    static constexpr int kThreads = 4;

    // Runs work(0) to work(kThreads - 1) at once and then fails the test for each problem they reported: the test framework itself
    // takes no reports from other threads here. Nor may a save fail, for which the user would be asked.
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
        EXPECT_EQ(0, prompts::g_count) << "a save failed";
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
    EXPECT_EQ(1u, CallsDuring("Quelcrypt_FileReaderFactory",
                              [&] {
                                  AtOnce([&](int thread) {
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
                                  });
                              }))
        << "whoever comes first, it is decrypted once";
    EXPECT_TRUE(expected == Stored(L"Docs\\a.bin")) << "all that was written before the close was saved";
}
