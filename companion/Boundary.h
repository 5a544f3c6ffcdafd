// The library's boundary: only CQuelcryptException and classes derived from it pass it, and every object that the library
// returns is destroyed through its own slots.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "quelcrypt/QuelcryptExceptions.h"

namespace companion {

// The callback that Quelcrypt_Initialize got; null takes it back.
void SetRaiseCallback(void (*raise)()) noexcept;

// To be called in a catch block: throws what was caught as such an exception. For an exception without a description
// it calls the registered callback, which throws.
[[noreturn]] void RethrowForCaller();

// Runs the body of an exported function or slot.
template <class Body>
auto AtBoundary(Body&& body) -> decltype(std::forward<Body>(body)()) {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        RethrowForCaller();
    }
}

[[noreturn]] void Fail(const std::wstring& description);
// Adds the system's text of the error.
[[noreturn]] void FailWithError(const std::wstring& description, std::uint32_t error);

// The first two slots of every object of the library. Made with new, owned by the caller.
template <class Interface>
class Handed : public Interface {
public:
    void* Destroy(std::uint32_t flags) override {
        void* const address = this;
        if (flags & 1)
            delete this;
        else
            this->~Handed();
        return address;
    }
    void Release() override { delete this; }

    Handed(const Handed&) = delete;
    Handed& operator=(const Handed&) = delete;

protected:
    Handed() = default;
    virtual ~Handed() = default;
};

}  // namespace companion
