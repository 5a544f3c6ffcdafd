#include "core/Progress.h"

#include <algorithm>
#include <cstdio>

#include <windows.h>

#include "core/Text.h"

namespace {

constexpr int kBarWidth = 24;
constexpr std::uint64_t kLongStep = 16'000'000;  // bytes
constexpr std::chrono::milliseconds kPatience{500}, kInterval{100};

// Lines are redrawn with control sequences, so a console without them does not count.
bool ErrorIsTerminal() {
    const HANDLE error = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(error, &mode) && SetConsoleMode(error, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}  // namespace

Progress::Progress(std::string label, std::uint64_t totalBytes)
    : m_label(ToShown(ToUtf16(label))), m_total(totalBytes), m_nextUpdate(m_start + kPatience), m_onTerminal(ErrorIsTerminal()) {}

Progress::~Progress() {
    if (m_shown)
        DrawOnTerminal("\r\x1b[K");
}

void Progress::Advance(std::uint64_t bytes) {
    m_done += bytes;
    const Clock::time_point now = Clock::now();
    if (!m_onTerminal || now < m_nextUpdate)
        return;
    m_nextUpdate = now + kInterval;
    Show(Line(std::chrono::duration<double>(now - m_start).count()));
}

void Progress::SetLabel(const std::string& label) { m_label = ToShown(ToUtf16(label)); }

void Progress::Say(const std::string& what) {
    if (m_onTerminal && (m_shown || m_total >= kLongStep))
        Show(m_label + "  " + what);
}

std::string Progress::Line(double seconds) const {
    const double megabytes = static_cast<double>(m_done) / 1e6;
    char text[96];
    if (m_total == 0) {
        std::snprintf(text, sizeof(text), "  %.1f MB  %.1f MB/s", megabytes, megabytes / seconds);
        return m_label + text;
    }
    const double part = std::min(1.0, static_cast<double>(m_done) / static_cast<double>(m_total));
    const int filled = static_cast<int>(part * kBarWidth);
    const int left = static_cast<int>(std::min(5999.0, seconds / std::max(part, 1e-6) - seconds));
    std::snprintf(text, sizeof(text), "] %3d%%  %.1f MB/s  %d:%02d left", static_cast<int>(part * 100), megabytes / seconds, left / 60,
                  left % 60);
    return m_label + "  [" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(kBarWidth - filled), '.') + text;
}

void Progress::Show(const std::string& line) {
    DrawOnTerminal("\r" + line + "\x1b[K");
    m_shown = true;
}
