// A property that does not hold ends the fuzzer, which then keeps the input.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#define MUST(condition)                                               \
    do {                                                              \
        if (!(condition)) {                                           \
            std::fprintf(stderr, "does not hold: %s\n", #condition); \
            std::abort();                                             \
        }                                                             \
    } while (false)

// The input as UTF-16 units, every value of which may come up.
inline std::wstring Units(const std::uint8_t* data, std::size_t size) {
    std::wstring text;
    for (std::size_t i = 0; i + 1 < size; i += 2)
        text += static_cast<wchar_t>(data[i] | data[i + 1] << 8);
    return text;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
