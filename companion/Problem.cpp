#include "Problem.h"

namespace companion {
namespace {

std::wstring& Noted() {
    thread_local std::wstring text;
    return text;
}

}  // namespace

void ForgetProblem() noexcept {
    Noted().clear();
}

void NoteProblem(const std::wstring& text) noexcept {
    try {
        Noted() = text;
    } catch (...) {
        ForgetProblem();
    }
}

std::wstring LastProblem() {
    return Noted();
}

}  // namespace companion
