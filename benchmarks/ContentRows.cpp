// Operations on content: blocks of open items, decryption, encryption, threads.
#include <memory>
#include <random>
#include <thread>

#include "Rows.h"
#include "World.h"
#include "companion/ContentCipher.h"

namespace {

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::uint32_t kBlockBytes = 64 * 1024;
constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

World& The() { return World::The(); }

// The volume reads and writes a block with positioned calls on one handle.
OVERLAPPED At(std::uint64_t offset) {
    OVERLAPPED overlapped{};
    overlapped.Offset = static_cast<DWORD>(offset);
    overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return overlapped;
}

bool RawRead(HANDLE handle, std::uint64_t offset, void* data, std::uint32_t size) {
    OVERLAPPED place = At(offset);
    DWORD done = 0;
    return ::ReadFile(handle, data, size, &done, &place) && done == size;
}

bool RawWrite(HANDLE handle, std::uint64_t offset, const void* data, std::uint32_t size) {
    OVERLAPPED place = At(offset);
    DWORD done = 0;
    return ::WriteFile(handle, data, size, &done, &place) && done == size;
}

bool Read(void* handle, std::uint64_t offset, void* data, std::uint32_t size) {
    std::uint32_t done = 0;
    return The().volume()->ReadFile(handle, offset, data, size, &done, nullptr) == VVS_Success && done == size;
}

bool Write(void* handle, std::uint64_t offset, const void* data, std::uint32_t size) {
    std::uint32_t done = 0;
    return The().volume()->WriteFile(handle, offset, data, size, &done, nullptr) == VVS_Success && done == size;
}

// An item open in the volume, its file open through the platform, and the offset of the next block.
struct Opened {
    Opened(const std::wstring& volumePath, std::uint64_t size, DWORD access)
        : sizeBytes(size), item(The().File(volumePath, size), access), file(FileBehind(volumePath), access) {}

    std::wstring FileBehind(const std::wstring& volumePath) {
        Must(Read(item.Get(), 0, block.get(), 4096), "the first read");  // decrypts
        return volumePath.starts_with(L"Docs") ? The().TempFileOf(volumePath.substr(volumePath.find(L'\\') + 1)) : The().Native(volumePath);
    }

    std::uint64_t sizeBytes;
    std::unique_ptr<char[]> block = std::make_unique<char[]>(kBlockBytes);
    Item item;
    File file;
    std::uint64_t offset = 0;
    std::mt19937 random{1};

    std::uint64_t Next() { return offset = (offset + kBlockBytes) % sizeBytes; }
    std::uint64_t Random() { return random() % (sizeBytes / 4096) * 4096; }
};

Pair Transfers(const wchar_t* path) {
    const auto open = std::make_shared<Opened>(path, 16 * kMiB, kReadWrite);
    return {
        {[=] {
            const std::uint64_t at = open->Next();
            Must(RawRead(open->file.Get(), at, open->block.get(), kBlockBytes) &&
                     RawWrite(open->file.Get(), at, open->block.get(), kBlockBytes),
                 "ReadFile and WriteFile");
        }},
        {[=] {
            const std::uint64_t at = open->Next();
            Must(Read(open->item.Get(), at, open->block.get(), kBlockBytes) && Write(open->item.Get(), at, open->block.get(), kBlockBytes),
                 "reading and writing through the volume");
        }}};
}

Pair RandomReads(const wchar_t* path) {
    const auto open = std::make_shared<Opened>(path, 16 * kMiB, GENERIC_READ);
    return {{[=] { Must(RawRead(open->file.Get(), open->Random(), open->block.get(), 4096), "ReadFile"); }},
            {[=] { Must(Read(open->item.Get(), open->Random(), open->block.get(), 4096), "reading through the volume"); }}};
}

Pair SecondReads(const wchar_t* path, std::uint64_t size) {
    const auto block = std::make_shared<std::vector<char>>(kBlockBytes);
    const auto readAll = [=](auto read) {
        for (std::uint64_t at = 0; at < size; at += kBlockBytes)
            Must(read(at, block->data(), static_cast<std::uint32_t>(std::min<std::uint64_t>(kBlockBytes, size - at))), "reading all");
    };
    const auto readItem = [=, name = The().File(path, size)] {
        const Item item(name);
        readAll([&](auto... arguments) { return Read(item.Get(), arguments...); });
    };
    readItem();
    const std::wstring temp = The().TempFileOf(std::wstring(path).substr(5));
    return {{[=] {
                const File file(temp);
                readAll([&](auto... arguments) { return RawRead(file.Get(), arguments...); });
            }},
            {readItem}};
}

// The minimum for a reader or writer of containers: encrypt or decrypt everything in memory, and write the result.
void CipherAndWrite(std::uint64_t size, const wchar_t* path, bool isSave) {
    static std::vector<std::uint8_t> block(4 * kBlockBytes);
    const std::vector<std::uint8_t> salt(companion::ContentCipher::kLongestSalt);
    companion::ContentCipher cipher("a password", salt, AES256_KEY_SIZE);
    const File file(The().Native(path), kReadWrite, CREATE_ALWAYS);
    for (std::uint64_t at = 0; at < size; at += block.size()) {
        isSave ? cipher.Encrypt(block) : cipher.Decrypt(block);
        DWORD done = 0;
        Must(::WriteFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &done, nullptr), "WriteFile");
    }
    Must(!isSave || FlushFileBuffers(file.Get()), "FlushFileBuffers");
}

// The same reads of two files, by one thread one after the other, and by one thread for each file.
template <class ReadBlock>
Pair OneAndTwoThreads(ReadBlock readBlock) {
    constexpr int readsOfEach = 400;
    const auto first = std::make_shared<Opened>(L"Plain\\one.bin", 16 * kMiB, GENERIC_READ);
    const auto second = std::make_shared<Opened>(L"Plain\\two.bin", 16 * kMiB, GENERIC_READ);
    const auto work = [=](Opened& open) {
        for (int i = 0; i < readsOfEach; ++i)
            Must(readBlock(open), "reading on a thread");
    };
    return {{[=] {
                work(*first);
                work(*second);
            }},
            {[=] {
                std::thread other([&] { work(*second); });
                work(*first);
                other.join();
            }}};
}

}  // namespace

// Rows are laid out as a table, which the formatter would destroy.
// clang-format off
Row TransfersAtRisingOffsets() {
    return {"read and write 64 KiB at rising offsets, open item (plain; encrypted once decrypted)",
            "1.03",
            Figure::Ratio,
            {{"plain", 400, 8, [] { return Transfers(L"Plain\\rising.bin"); }},
             {"encrypted once decrypted", 400, 8, [] { return Transfers(L"Docs\\rising.bin"); }}}};
}

Row ReadsAtRandomOffsets() {
    return {"read 4 KiB at random offsets", "1.05", Figure::Ratio,
            {{"", 400, 20, [] { return RandomReads(L"Plain\\random.bin"); }}}};
}

Row FirstRead() {
    return {"first read of a 64 MiB encrypted file", "1.05", Figure::Ratio, {{"", 9, 1, [] {
                const std::wstring path = The().File(L"Docs\\64 MiB.bin", 64 * kMiB);
                const std::wstring container = The().Native(path) + L".zip";
                const std::wstring plain = The().Native(L"temp\\first read.bin");
                const auto item = std::make_shared<std::unique_ptr<Item>>();
                return Pair{{[=] { The().Decrypt(container, plain); }, [=] {
                                 DeleteFileW(plain.c_str());
                                 The().Reload();
                             }},
                            {[=] {
                                 char byte = 0;
                                 *item = std::make_unique<Item>(path);
                                 Must(Read((*item)->Get(), 0, &byte, 1), "the first read");
                             },
                             [] { The().Reload(); }, [=] { item->reset(); }}};
            }}}};
}

Row CloseOfAChange() {
    return {"close of a changed 64 MiB encrypted file", "1.05", Figure::Ratio, {{"", 9, 1, [] {
                const std::wstring path = The().File(L"Docs\\64 MiB.bin", 64 * kMiB);
                const std::wstring plain = The().Native(The().File(L"Plain\\64 MiB.bin", 64 * kMiB));
                const std::wstring container = The().Native(L"Docs\\written.bin.zip");
                const auto item = std::make_shared<std::unique_ptr<Item>>();
                const auto change = [=] {
                    *item = std::make_unique<Item>(path, kReadWrite);
                    Must(Write((*item)->Get(), 0, "x", 1), "a change");
                };
                return Pair{{[=] { The().Encrypt(plain, container, L"written.bin"); }}, {[=] { item->reset(); }, change}};
            }}}};
}

Row ContainersAlone() {
    constexpr std::uint64_t size = 64 * kMiB;
    return {"a container of 64 MiB by the companion library, beside its cipher in memory and writing the result",
            "1.5",
            Figure::Ratio,
            {{"reading it", 9, 1,
              [] {
                  const std::wstring container = The().Native(The().File(L"Docs\\64 MiB.bin", size)) + L".zip";
                  return Pair{{[] { CipherAndWrite(size, L"temp\\raw.bin", false); }},
                              {[=] { The().Decrypt(container, The().Native(L"temp\\read.bin")); }}};
              }},
             {"writing it", 9, 1, [] {
                  const std::wstring plain = The().Native(The().File(L"Plain\\64 MiB.bin", size));
                  return Pair{{[] { CipherAndWrite(size, L"Docs\\raw.part", true); }},
                              {[=] { The().Encrypt(plain, The().Native(L"Docs\\written.bin.zip"), L"written.bin"); }}};
              }}}};
}

Row SecondRead() {
    return {"second open and full read of an unchanged encrypted file",
            "1.1 above the fixed cost",
            Figure::AboveFixedCost,
            {{"of 16 bytes: the fixed cost", 100, 1, [] { return SecondReads(L"Docs\\16 bytes.bin", 16); }},
             {"of 64 MiB", 25, 1, [] { return SecondReads(L"Docs\\64 MiB.bin", 64 * kMiB); }}}};
}

Row TwoThreads() {
    return {"two threads on different files",
            "1.8 times the work",
            Figure::Speedup,
            {{"through the volume", 30, 1,
              [] {
                  return OneAndTwoThreads(
                      [](Opened& open) { return Read(open.item.Get(), open.Next(), open.block.get(), kBlockBytes); });
              }},
             {"the raw calls on two threads", 30, 1,
              [] {
                  return OneAndTwoThreads(
                      [](Opened& open) { return RawRead(open.file.Get(), open.Next(), open.block.get(), kBlockBytes); });
              },
              true}}};
}
// clang-format on
