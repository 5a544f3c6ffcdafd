// end_session: tells the server, as Windows does at a logoff, that the session ends.
#include <windows.h>

int main() {
    const HWND listener = FindWindowW(L"QuelvolSessionListener", nullptr);
    return listener && SendMessageW(listener, WM_QUERYENDSESSION, 0, 0) && SendNotifyMessageW(listener, WM_ENDSESSION, TRUE, 0) ? 0 : 1;
}
