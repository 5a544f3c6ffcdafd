// The module's operator new and delete where run-time checks are on. Blocks lie between known words, and freed ones are filled and kept for
// a while: writing beside a block or into a freed one, and freeing twice or what was never allocated, end the program, at the latest then.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr std::uint64_t kLive = 0x51756961'4C697665, kFreed = 0x51756961'46726565;
constexpr unsigned char kUnset = 0xCD, kGone = 0xDD;
constexpr std::size_t kMostKept = 512, kLargestKept = 1 << 16;

struct Before {
    std::uint64_t size, state;
};
static_assert(sizeof(Before) == __STDCPP_DEFAULT_NEW_ALIGNMENT__);

unsigned char* Content(Before* block) { return reinterpret_cast<unsigned char*>(block + 1); }

void Require(bool condition) {
    if (!condition)
        std::abort();
}

// The last blocks that were freed, in a ring. Never destroyed: static objects free until the end.
std::array<std::atomic<Before*>, kMostKept> g_kept;
std::atomic<std::size_t> g_next;

void Leave(Before* block) {
    Require(block->state == kFreed);
    for (std::size_t i = 0; i < block->size; ++i)
        Require(Content(block)[i] == kGone);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    auto* const block = static_cast<Before*>(size < SIZE_MAX / 2 ? std::malloc(sizeof(Before) + size + sizeof(kLive)) : nullptr);
    if (!block)
        throw std::bad_alloc();
    *block = {size, kLive};
    std::memset(Content(block), kUnset, size);
    std::memcpy(Content(block) + size, &kLive, sizeof(kLive));
    return Content(block);
}

void operator delete(void* content) noexcept {
    if (!content)
        return;
    Before* block = static_cast<Before*>(content) - 1;
    Require(block->state == kLive && std::memcmp(Content(block) + block->size, &kLive, sizeof(kLive)) == 0);
    block->state = kFreed;
    std::memset(content, kGone, block->size);
    if (block->size <= kLargestKept)
        block = g_kept[g_next++ % kMostKept].exchange(block);
    if (block)
        Leave(block);
}

void operator delete(void* content, std::size_t) noexcept { operator delete(content); }
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* content) noexcept { operator delete(content); }
void operator delete[](void* content, std::size_t) noexcept { operator delete(content); }
