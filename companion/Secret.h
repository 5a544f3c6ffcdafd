// A password, each copy of which is wiped from memory at its end, and what wipes other texts that hold one and keys that are derived from
// one. Copies that the system and libraries make cannot be wiped: see docs/security.md.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace companion {

inline void Wipe(void* data, std::size_t bytes) noexcept {
    volatile char* at = static_cast<volatile char*>(data);
    while (bytes-- > 0)
        *at++ = 0;
}

// Also what the text held before it was moved from or made shorter.
template <class Text>
void Wipe(Text& text) noexcept {
    text.resize(text.capacity());
    Wipe(text.data(), text.size() * sizeof(text[0]));
    text.clear();
}

template <class T>
struct WipingAllocator {
    using value_type = T;
    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* data, std::size_t count) noexcept {
        Wipe(data, count * sizeof(T));
        std::allocator<T>().deallocate(data, count);
    }
    bool operator==(const WipingAllocator&) const = default;
};
template <class T>
using WipedVector = std::vector<T, WipingAllocator<T>>;

class Secret {
public:
    Secret() = default;
    // Wipes text; who passes a variable moves it.
    explicit Secret(std::string text) : m_text(text.begin(), text.end()) { Wipe(text); }

    std::string_view Text() const { return {m_text.data(), m_text.size()}; }  // UTF-8
    bool IsEmpty() const { return m_text.empty(); }
    bool operator==(const Secret&) const = default;

private:
    WipedVector<char> m_text;
};

inline Secret FirstLineOf(std::string_view text) { return Secret(std::string(text.substr(0, text.find_first_of("\r\n")))); }

}  // namespace companion
