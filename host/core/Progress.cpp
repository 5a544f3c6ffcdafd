#include "core/Progress.h"

#include <algorithm>
#include <cstdio>

#include <windows.h>

#include "core/Text.h"

namespace {

constexpr std::size_t kBarWidth = 10;
constexpr std::uint64_t kLongStep = 16'000'000;  // bytes
constexpr std::chrono::milliseconds kPatience{500}, kInterval{100};

std::string Megabytes(std::uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", static_cast<double>(bytes) / 1e6);
    return text;
}

// Lines are redrawn with control sequences, so a console without them does not count.
bool ErrorIsTerminal() {
    const HANDLE error = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(error, &mode) && SetConsoleMode(error, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}  // namespace

Progress::Progress(std::string label, std::uint64_t totalBytes, std::size_t totalFiles)
    : m_label(ToShown(ToUtf16(label))),
      m_totalBytes(totalBytes),
      m_totalFiles(totalFiles),
      m_nextUpdate(m_start + kPatience),
      m_onTerminal(ErrorIsTerminal()) {}

Progress::~Progress() {
    if (m_isShown)
        EraseDrawing();
}

void Progress::Advance(std::uint64_t bytes) {
    m_bytes += bytes;
    ShowIfDue();
}

void Progress::NextFile() {
    ++m_files;
    ShowIfDue();
}

void Progress::Say(const std::string& what) {
    if (m_onTerminal && (m_isShown || m_totalBytes >= kLongStep))
        Show(m_label + "  " + what);
}

void Progress::ShowIfDue() {
    const Clock::time_point now = Clock::now();
    if (!m_onTerminal || now < m_nextUpdate)
        return;
    m_nextUpdate = now + kInterval;
    Show(Line(std::chrono::duration<double>(now - m_start).count()));
}

std::string Progress::Line(double seconds) const {
    const auto of = [](const std::string& total, bool isKnown) { return isKnown ? " of " + total : std::string(); };
    std::string line = m_label;
    if (m_files > 1 || m_totalFiles > 1)
        line += "  " + std::to_string(m_files) + of(std::to_string(m_totalFiles), m_totalFiles > 0) + " files";
    const double part = m_totalBytes > 0   ? static_cast<double>(m_bytes) / static_cast<double>(m_totalBytes)
                        : m_totalFiles > 0 ? static_cast<double>(m_files) / static_cast<double>(m_totalFiles)
                                           : 0;
    if (m_totalBytes > 0 || m_totalFiles > 0) {
        const auto filled = static_cast<std::size_t>(std::min(1.0, part) * kBarWidth);
        line += "  [" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "]";
    }
    if (m_bytes > 0)
        line += "  " + Megabytes(m_bytes) + of(Megabytes(m_totalBytes), m_totalBytes > 0) + " MB  " +
                Megabytes(static_cast<std::uint64_t>(static_cast<double>(m_bytes) / seconds)) + " MB/s";
    if (part > 0) {
        const int left = static_cast<int>(std::clamp(seconds / part - seconds, 0.0, 359999.0));
        line += "  " + std::to_string(left / 60) + (left % 60 < 10 ? ":0" : ":") + std::to_string(left % 60) + " left";
    }
    return line;
}

void Progress::Show(const std::string& line) {
    DrawOnTerminal(line);
    m_isShown = true;
}
