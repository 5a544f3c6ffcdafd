#include "Problem.h"

#include <iterator>

namespace companion {
namespace {

// Not an object with a destructor, which would keep the library loaded until the thread ends.
thread_local wchar_t t_text[1024];  // ends with zero

}  // namespace

void ForgetProblem() noexcept { t_text[0] = L'\0'; }

void NoteProblem(const std::wstring& text) noexcept { t_text[text.copy(t_text, std::size(t_text) - 1)] = L'\0'; }

std::wstring LastProblem() { return t_text; }

}  // namespace companion
