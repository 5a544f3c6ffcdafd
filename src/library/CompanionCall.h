// Every call of the companion library is made through CallCompanion. Another compiler may have built the library; its exceptions would
// pass all handlers and destructors of this one, and locks would stay held. CallCompanion turns them into CQuelcryptErrorException.
#pragma once

#include <type_traits>

#include "quelcrypt/QuelcryptExceptions.h"

// Calls function(context). True: an exception of another compiler ended it.
extern "C" bool EndsByForeignException(void (*function)(void*), void* context);

// Returns what call returns and throws what it throws, but CQuelcryptErrorException for a foreign exception. That skips the
// destructors in call, so call must do nothing else.
template <class Call>
auto CallCompanion(Call call) {
    const auto guarded = [](auto& work) {
        const bool isForeign =
            EndsByForeignException([](void* context) { (*static_cast<std::decay_t<decltype(work)>*>(context))(); }, &work);
        if (isForeign)
            throw CQuelcryptErrorException(L"An exception of another compiler");
    };
    if constexpr (std::is_void_v<decltype(call())>) {
        guarded(call);
    } else {
        decltype(call()) result{};
        auto work = [&] { result = call(); };
        guarded(work);
        return result;
    }
}
