// companion_conformance: does a companion library do what the volume requires of it?
#include <cstdio>
#include <iostream>

#include "companion/conformance/Conformance.h"

namespace {

using namespace conformance;

constexpr const char* kUsage = R"(companion_conformance LIBRARY ENCRYPTED PLAIN [OTHER]
checks whether a companion library does what the volume requires of it, and prints a line for each requirement.

  LIBRARY    the library, as in C:\mine\QuelcryptLib64.dll, configured by its own means for these folders:
  ENCRYPTED  empty, has a policy
  PLAIN      has no policy; nothing is written there
  OTHER      empty, has a policy and another key

Exit codes: 0 all requirements are met, 1 one is not, 2 wrong use.
)";

Report g_report(std::cout);

LONG WINAPI TellOfCrash(EXCEPTION_POINTERS* exception) {
    char seen[64];
    std::snprintf(seen, sizeof(seen), "it crashed, with exception 0x%08lx", exception->ExceptionRecord->ExceptionCode);
    g_report.Stopped(seen);
    TerminateProcess(GetCurrentProcess(), 1);
    return EXCEPTION_CONTINUE_SEARCH;
}

Path Absolute(const wchar_t* path) { return std::filesystem::absolute(path).lexically_normal().make_preferred(); }

}  // namespace

int wmain(int count, wchar_t** arguments) {
    if (count < 4 || count > 5) {
        std::cerr << kUsage;
        return 2;
    }
    SetUnhandledExceptionFilter(TellOfCrash);
    try {
        const Folders folders{Absolute(arguments[2]), Absolute(arguments[3]), count == 5 ? Absolute(arguments[4]) : Path()};
        CheckLibrary(g_report, Absolute(arguments[1]), folders);
    } catch (const Unmet& unmet) {
        std::cerr << "companion_conformance: " << unmet.seen << '\n';
        return 2;
    }
    const int unmet = g_report.UnmetCount();
    std::cout << (unmet == 0 ? "All requirements are met." : std::to_string(unmet) + " of these requirements are not met.") << std::endl;
    return unmet == 0 ? 0 : 1;
}
