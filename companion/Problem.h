// The reason why the last container could not be read or written on this thread, for a host that only received a status. Forgotten when
// the next container is read or written.
#pragma once

#include <string>

namespace companion {

void ForgetProblem() noexcept;
void NoteProblem(const std::wstring& text) noexcept;
std::wstring LastProblem();

}  // namespace companion
