#include "core/Interrupt.h"

#include <atomic>
#include <future>
#include <thread>

#include <windows.h>

#include "core/HostError.h"

namespace {

constexpr wchar_t kSessionListener[] = L"QuelvolSessionListener";

std::atomic<bool> g_interrupted{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    g_interrupted = true;
    // When the window closes or the user logs off, the process is ended as soon as this returns, or after some seconds.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

LRESULT CALLBACK OnWindowMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message != WM_ENDSESSION || !first)
        return DefWindowProcW(window, message, first, second);
    g_interrupted = true;
    Sleep(INFINITE);  // as above
    return 0;
}

}  // namespace

void CatchInterrupts() { SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

void CatchEndOfSession() {
    std::promise<void> isListening;
    std::thread([&isListening] {
        WNDCLASSW listener{};
        listener.lpfnWndProc = OnWindowMessage;
        listener.lpszClassName = kSessionListener;
        RegisterClassW(&listener);
        CreateWindowW(kSessionListener, kSessionListener, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
        isListening.set_value();
        for (MSG message; GetMessageW(&message, nullptr, 0, 0) > 0;)
            DispatchMessageW(&message);
    }).detach();
    isListening.get_future().wait();
}

bool Interrupted() { return g_interrupted; }

void StopIfInterrupted() {
    if (g_interrupted)
        throw HostError("interrupted", Exit_Interrupted);
}
