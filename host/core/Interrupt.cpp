#include "core/Interrupt.h"

#include <atomic>

#include <windows.h>

#include "core/HostError.h"

namespace {

std::atomic<bool> g_interrupted{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    g_interrupted = true;
    // When the window closes or the user logs off, the process is ended as soon as this returns, or after some seconds.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

}  // namespace

void CatchInterrupts() { SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

bool Interrupted() { return g_interrupted; }

void StopIfInterrupted() {
    if (g_interrupted)
        throw HostError("interrupted", Exit_Interrupted);
}
