#include "Boundary.h"

#include <atomic>
#include <exception>
#include <new>

#include "Text.h"
#include "common/CharacterSets.h"

namespace companion {
namespace {

std::atomic<void (*)()> g_raise{nullptr};

[[noreturn]] void Raise() {
    if (const auto raise = g_raise.load())
        raise();
    throw CQuelcryptException();
}

}  // namespace

void SetRaiseCallback(void (*raise)()) noexcept { g_raise = raise; }

void RethrowForCaller() {
    try {
        try {
            throw;
        } catch (const CQuelcryptException&) {
            throw;
        } catch (const std::bad_alloc&) {
            throw CQuelcryptOutOfMemoryException();
        } catch (const std::exception& error) {
            throw CQuelcryptErrorException(Widened(error.what(), CharacterSet::Utf8).c_str());
        }
    } catch (const CQuelcryptException&) {
        throw;
    } catch (...) {
        // Nothing is known, or there is no memory even for the description.
        Raise();
    }
}

void Fail(const std::wstring& description) { throw CQuelcryptErrorException(description.c_str()); }

void FailWithError(const std::wstring& description, std::uint32_t error) { Fail(description + L": " + SystemErrorText(error)); }

}  // namespace companion
