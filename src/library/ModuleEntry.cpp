// The module's entry point: it starts the companion library and the trace log at load and stops them at unload. It runs
// under the loader's lock, so it starts no thread and waits for none.
#include <utility>

#include <windows.h>

#include "diagnostics/QuelcryptLog.h"
#include "diagnostics/QuelcryptLogControl.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr int kCleanBootMetric = 67;

[[noreturn]] void RaiseInterfaceException() { throw CQuelcryptInterfaceException(); }

void StartLog() {
    IFileLogger* const logger = Quelcrypt_GetFileLogger(1);
    if (!logger)
        return;
    QuelcryptVolLog::SetModuleLogger(logger, Quelcrypt_GetLoggerComponentIndex("QuelcryptVol"));
    // Deliberately never freed: other threads may still trace while the process ends.
    static QuelcryptLogControl* const s_control = new QuelcryptLogControl;
    s_control->Parse();
    QuelcryptLog::SetProcessControl(s_control);
}

// A failed attach is followed by a detach: the library is ended only if it began, and once.
bool s_isInitialized = false;

bool Attach() {
    try {
        Quelcrypt_Initialize(&RaiseInterfaceException);
        s_isInitialized = true;
        StartLog();
        return true;
    } catch (...) {  // without its companion library the volume can do nothing
        return false;
    }
}

void Detach() {
    if (!std::exchange(s_isInitialized, false))
        return;
    QuelcryptLog::SetProcessControl(nullptr);
    QuelcryptVolLog::SetModuleLogger(nullptr, 0);
    try {
        Quelcrypt_Uninitialize();
    } catch (...) {  // nothing is left to tell
    }
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    const int cleanBoot = GetSystemMetrics(kCleanBootMetric);
    if (cleanBoot == 1 || cleanBoot == 2)
        return FALSE;
    if (reason == DLL_PROCESS_ATTACH)
        return Attach();
    if (reason == DLL_PROCESS_DETACH)
        Detach();
    return TRUE;
}
