// Why the last container could not be read or written on this thread, for a host that got no more than a status. Forgotten when the
// next one begins.
#pragma once

#include <string>

namespace companion {

void ForgetProblem() noexcept;
void NoteProblem(const std::wstring& text) noexcept;
std::wstring LastProblem();

}  // namespace companion
