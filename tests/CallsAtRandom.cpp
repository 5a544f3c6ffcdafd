// A host that has lost its way: any slot with any path, handle and record, in any order. The calls come from a seed, which is
// printed; QUELCRYPT_TEST_SEED sets another one.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "harness/VolumeFixture.h"

namespace {

// Records that end where readable memory ends, full of what was there before: a read or write behind one ends the program.
template <typename Record>
class RecordAtTheEdge {
public:
    RecordAtTheEdge() : m_pages(static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE))) {
        DWORD old = 0;
        VirtualProtect(m_pages + kPage, kPage, PAGE_NOACCESS, &old);
    }
    ~RecordAtTheEdge() { VirtualFree(m_pages, 0, MEM_RELEASE); }
    RecordAtTheEdge(const RecordAtTheEdge&) = delete;
    RecordAtTheEdge& operator=(const RecordAtTheEdge&) = delete;

    Record* FilledWith(int byte) {
        auto* const record = reinterpret_cast<Record*>(m_pages + kPage - sizeof(Record));
        std::memset(static_cast<void*>(record), byte, sizeof(Record));
        return record;
    }

private:
    static constexpr std::size_t kPage = 4096;
    char* m_pages;
};

class CallsAtRandom : public VolumeFixture {
public:
    std::uint32_t Below(std::uint32_t end) { return std::uniform_int_distribution<std::uint32_t>(0, end - 1)(m_random); }
    template <typename T>
    T AnyOf(std::initializer_list<T> list) {
        return *(list.begin() + Below(static_cast<std::uint32_t>(list.size())));
    }

    // Never an absolute path: those a host may use as they stand.
    const wchar_t* AnyPath() {
        if (Below(40) == 0)
            return nullptr;
        static const std::wstring tooLong(300, L'n');
        m_path = AnyOf<std::wstring>({L"Docs", L"Docs", L"Docs", L"Plain", L"Other", L"docs", L"Nowhere", L".", L"..", L"*"});
        for (std::uint32_t parts = Below(4); parts > 0; --parts)
            m_path += AnyOf<std::wstring>({L"\\", L"\\", L"\\", L"\\\\", L"/"}) +
                      AnyOf<std::wstring>({L"a.txt", L"a.txt", L"b.txt", L"b.txt", L"c", L"a.txt.zip", L"sub", L"sub", L"..", L".",
                                           L"canary.txt", L"temp", L"a.txt:stream", L"COM1.txt", L"blank ", L"dots..", L"wh?t*", L"", L"\x1",
                                           L"\xD800", L".zip", L"x.tmp", tooLong});
        return m_path.c_str();
    }
    std::wstring AnyText() {
        const wchar_t* const path = AnyPath();
        return path ? path : L"";
    }
    void* AnyHandle() {
        if (!m_handles.empty() && Below(4) != 0)
            return m_handles[Below(static_cast<std::uint32_t>(m_handles.size()))];
        return AnyOf<void*>({nullptr, reinterpret_cast<void*>(std::uintptr_t{0x10}), this, m_stale, INVALID_HANDLE_VALUE});
    }
    VirtFindData* AnyRecord() { return Below(3) == 0 ? nullptr : m_record.FilledWith(AnyOf<int>({0, 'x', 0xFF})); }
    const wchar_t* AnyToken() {
        return AnyOf<const wchar_t*>({nullptr, nullptr, L"", L"*", L"{00000000-0000-0000-0000-000000000000}", m_token.c_str()});
    }

    void OpenAny() {
        void* handle = nullptr;
        const auto access = AnyOf<std::uint32_t>({GENERIC_READ, kReadWrite, kReadWrite, DELETE, 0, 0xFFFFFFFF});
        const auto disposition = AnyOf<std::uint32_t>({1, 2, 3, 4, 5, 10, 11, 0, 99});
        volume()->OpenFile(Below(40) ? &handle : nullptr, AnyPath(), access, AnyOf<std::uint32_t>({0, 3, 7, 0xFF}), disposition, AnyToken(),
                           AnyRecord());
        if (handle)
            m_handles.push_back(handle);
        m_opened += handle != nullptr;
    }
    void CloseOne() {
        if (m_handles.empty())
            return;
        std::swap(m_handles[Below(static_cast<std::uint32_t>(m_handles.size()))], m_handles.back());
        m_stale = m_handles.back();
        m_handles.pop_back();
        volume()->CloseFile(m_stale, AnyRecord());
    }
    void UseAHandle() {
        char data[4096] = "content";
        std::uint32_t done = 0;
        const auto offset = AnyOf<std::uint64_t>({0, 0, 5, 4096, ~std::uint64_t{0}, std::uint64_t{1} << 63});
        const auto size = AnyOf<std::uint32_t>({0, 7, sizeof(data)});
        void* const buffer = Below(20) ? data : nullptr;
        void* const handle = AnyHandle();
        switch (Below(11)) {
        case 0: volume()->ReadFile(handle, offset, buffer, size, Below(2) ? &done : nullptr, AnyRecord()); break;
        case 1:
        case 2: volume()->WriteFile(handle, offset, buffer, size, Below(2) ? &done : nullptr, AnyRecord()); break;
        case 3: volume()->SetFileSize(handle, AnyOf<std::uint64_t>({0, 3, 10000, ~std::uint64_t{0}}), AnyRecord()); break;
        case 4: volume()->Flush(handle); break;
        case 5: volume()->GetFileInfo(handle, AnyRecord()); break;
        case 6: volume()->SetFileInfo(handle, AnyOf<std::uint32_t>({0, FILE_ATTRIBUTE_NORMAL, ~0u}), AnyRecord()); break;
        case 7: volume()->Delete(handle, AnyRecord()); break;
        case 8: volume()->Undelete(handle, AnyRecord()); break;
        default: volume()->RenameFile(handle, AnyRecord(), AnyPath(), AnyToken()); break;
        }
    }
    void UseAPath() {
        const std::wstring from = AnyText();
        Below(2) ? volume()->MoveFileW(from.c_str(), AnyPath(), AnyToken()) : volume()->CopyFileW(from.c_str(), AnyPath(), AnyToken());
    }
    void Look() {
        volume()->FindFile(AnyPath(), AnyRecord());
        void* const hFind = volume()->FindFirstFileW(AnyPath(), AnyRecord());
        for (int entry = 0; entry < 5; ++entry)
            volume()->FindNextFileW(AnyOf({hFind, AnyHandle()}), AnyRecord());
        volume()->FindClose(hFind);
        EXPECT_FALSE(volume()->FindClose(hFind)) << "twice";
    }
    void LockAndUnlock() {
        LockInfo* const lockInfo = m_lock.FilledWith(AnyOf<int>({0, 1, 'x', 0xFF}));
        if (Below(2))
            lockInfo->scope = LockScope_Exclusive, lockInfo->type = LockType_Write;
        const std::wstring path = AnyText();
        const bool isLocked = volume()->Lock(path.c_str(), Below(20) ? lockInfo : nullptr) == VVS_Success;
        if (isLocked)
            m_locks.emplace_back(path, m_token = lockInfo->token);
        volume()->FindLock(AnyPath(), AnyToken(), m_lock.FilledWith('x'));
        volume()->Unlock(AnyPath(), AnyToken());
        if (m_locks.size() > 2)
            ReleaseLocks();
    }
    void ReleaseLocks() {
        for (const auto& [path, token] : m_locks)
            volume()->Unlock(path.c_str(), token.c_str());
        m_locks.clear();
    }

    std::mt19937 m_random;
    std::vector<void*> m_handles;
    std::vector<std::pair<std::wstring, std::wstring>> m_locks;
    int m_opened = 0;

private:
    std::wstring m_path, m_token;
    void* m_stale = nullptr;
    RecordAtTheEdge<VirtFindData> m_record;
    RecordAtTheEdge<LockInfo> m_lock;
};

}  // namespace

TEST_F(CallsAtRandom, HarmNothing) {
    const char* const given = std::getenv("QUELCRYPT_TEST_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 1;
    std::printf("QUELCRYPT_TEST_SEED=%u\n", seed);
    m_random.seed(seed);
    WriteRaw(root() + L"\\canary.txt", "not in the volume");
    Put(L"Docs\\untouched.txt", "content");

    using Step = void (CallsAtRandom::*)();
    for (int call = 0; call < 4000; ++call)
        (this->*AnyOf<Step>({&CallsAtRandom::OpenAny, &CallsAtRandom::OpenAny, &CallsAtRandom::CloseOne, &CallsAtRandom::CloseOne,
                             &CallsAtRandom::UseAHandle, &CallsAtRandom::UseAHandle, &CallsAtRandom::UseAHandle, &CallsAtRandom::UseAPath,
                             &CallsAtRandom::Look, &CallsAtRandom::LockAndUnlock}))();
    while (!m_handles.empty())
        CloseOne();
    ReleaseLocks();

    EXPECT_LT(50, m_opened);
    EXPECT_EQ("not in the volume", ReadRaw(root() + L"\\canary.txt"));
    EXPECT_EQ("content", Get(L"Docs\\untouched.txt"));
    for (const std::wstring& file : FilesBelow(root())) {
        const std::wstring name = file.substr(root().size() + 1);
        const bool isExpected = name == L"canary.txt" || name == L"quelcrypt.json" || name.starts_with(L"Docs\\") ||
                                name.starts_with(L"Other\\") || name.starts_with(L"Plain\\") || name.starts_with(L"temp\\");
        EXPECT_TRUE(isExpected) << Narrow(file);
    }
    ExpectUnsavedEdits(TrackedEdits().size());
}
