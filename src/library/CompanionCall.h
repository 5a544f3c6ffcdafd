// Every call of the companion library is made through here. It may have been built by another compiler, whose exceptions pass all
// handlers and destructors of this one: locks would stay held. Here such an exception ends, and becomes one of ours.
#pragma once

#include <type_traits>

#include "quelcrypt/QuelcryptExceptions.h"

// Calls function(context). True: an exception of another compiler ended it.
extern "C" bool EndsByForeignException(void (*function)(void*), void* context);

// Returns what call returns, and lets through what it throws; CQuelcryptErrorException in place of a foreign exception, which skips the
// destructors in call: it is to do nothing but the call.
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
