#include "Library.h"

#include "Boundary.h"
#include "Logger.h"
#include "SettingsStore.h"

namespace companion {

void Initialize(void (*raise)()) noexcept {
    SetRaiseCallback(raise);
    ConfigureLogger({}, 0);
    try {
        const auto inForce = CurrentSettings();
        ConfigureLogger(inForce->settings.logFile, inForce->settings.logLevel);
    } catch (...) {
        ReportProblem(L"Configuration: out of memory (there are no folders)");
    }
}

void Uninitialize() noexcept {
    CloseLogger();
    SetRaiseCallback(nullptr);
}

IFileLogger* FileLogger() noexcept { return Logger(); }

std::uint32_t LoggerComponentIndex(const char* componentName) {
    return AtBoundary([&] { return ComponentIndex(componentName); });
}

}  // namespace companion
