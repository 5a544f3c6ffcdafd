// A password; each copy is wiped from memory at its end. Copies that the system and other programs made before cannot be wiped.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace companion {

inline void Wipe(void* data, std::size_t bytes) noexcept {
    volatile char* at = static_cast<volatile char*>(data);
    while (bytes-- > 0)
        *at++ = 0;
}

template <class Text>
void Wipe(Text& text) noexcept {
    Wipe(text.data(), text.size() * sizeof(text[0]));
    text.clear();
}

class Secret {
public:
    Secret() = default;
    explicit Secret(std::string text) : m_text(std::move(text)) { Wipe(text); }
    Secret(const Secret&) = default;
    Secret(Secret&& other) noexcept : m_text(std::move(other.m_text)) { Wipe(other.m_text); }
    Secret& operator=(Secret other) noexcept {
        m_text.swap(other.m_text);
        return *this;
    }
    ~Secret() { Wipe(m_text); }

    const std::string& Text() const { return m_text; }  // UTF-8
    bool IsEmpty() const { return m_text.empty(); }
    bool operator==(const Secret&) const = default;

private:
    std::string m_text;
};

}  // namespace companion
