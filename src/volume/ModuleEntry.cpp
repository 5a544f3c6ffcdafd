// The module's entry point: it starts the companion library and the trace log at load and ends them at unload. It runs
// under the loader's lock, so it starts no thread and waits for none.
#include <memory>
#include <utility>

#include <windows.h>

#include "diagnostics/QuelcryptLog.h"
#include "diagnostics/QuelcryptLogControl.h"
#include "library/CompanionCall.h"
#include "quelcrypt/QuelcryptExceptions.h"

#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres() noexcept;
}
#endif

namespace {

constexpr int kCleanBootMetric = 67;

[[noreturn]] void RaiseInterfaceException() { throw CQuelcryptInterfaceException(); }

QuelcryptLogControl* s_control = nullptr;

// The volume works as well without its log.
void StartLog() {
    try {
        IFileLogger* const logger = CallCompanion([] { return Quelcrypt_GetFileLogger(1); });
        if (!logger)
            return;
        const std::uint32_t componentIndex = CallCompanion([] { return Quelcrypt_GetLoggerComponentIndex("QuelcryptVol"); });
        auto control = std::make_unique<QuelcryptLogControl>();
        control->Parse();
        s_control = control.release();
        QuelcryptLog::SetProcessControl(s_control);
        QuelcryptVolLog::SetModuleLogger(logger, componentIndex);
    } catch (...) {  // nobody can be told
    }
}

// A detach follows even a failed attach: the library must be ended only if it was started, and once.
bool s_isInitialized = false;

bool Attach() {
    try {
        CallCompanion([] { Quelcrypt_Initialize(&RaiseInterfaceException); });
        s_isInitialized = true;
        StartLog();
        return true;
    } catch (...) {  // the volume cannot work without its companion library
        return false;
    }
}

// When the process ends, other threads may have been stopped in the middle of a line, so the platform frees what they used.
void Detach(bool processEnds) {
    if (!std::exchange(s_isInitialized, false))
        return;
    QuelcryptLog::SetProcessControl(nullptr);
    QuelcryptVolLog::SetModuleLogger(nullptr, 0);
    try {
        CallCompanion([] { Quelcrypt_Uninitialize(); });
    } catch (...) {  // nobody can be told
    }
    if (processEnds)
        return;
    delete std::exchange(s_control, nullptr);
#ifdef __GLIBCXX__
    __gnu_cxx::__freeres();  // the memory that this module's runtime reserves for exceptions
#endif
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds) {
    const int cleanBoot = GetSystemMetrics(kCleanBootMetric);
    if (cleanBoot == 1 || cleanBoot == 2)
        return FALSE;
    if (reason == DLL_PROCESS_ATTACH)
        return Attach();
    if (reason == DLL_PROCESS_DETACH)
        Detach(processEnds != nullptr);
    return TRUE;
}
