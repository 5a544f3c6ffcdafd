// Text in fixed buffers. Any thread.
#pragma once

#include <cstddef>
#include <string_view>

// The text in a fixed buffer, perhaps without a terminator.
template <std::size_t Capacity>
std::wstring_view BoundedText(const wchar_t (&buffer)[Capacity]) {
    const std::wstring_view whole(buffer, Capacity);
    return whole.substr(0, whole.find(L'\0'));
}

// Copies text into a fixed buffer, cut to what fits before the terminator; returns whether all of it did.
template <std::size_t Capacity>
bool CopyBounded(wchar_t (&buffer)[Capacity], std::wstring_view text) {
    const std::size_t units = text.copy(buffer, Capacity - 1);
    buffer[units] = L'\0';
    return units == text.size();
}
