// A progress line on standard error for copies that take longer than a moment. In a pipe or file it prints nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class Progress {
public:
    // totalBytes 0: not known; only the amount and the speed are shown.
    Progress(std::string label, std::uint64_t totalBytes);
    // Erases the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Advance(std::uint64_t bytes);
    // The current item: "12 of 340 files".
    void SetLabel(const std::string& label);
    // Names a step of the volume whose progress cannot be measured; shown when it will take long.
    void Say(const std::string& what);

private:
    using Clock = std::chrono::steady_clock;

    std::string Line(double seconds) const;
    void Show(const std::string& line);

    std::string m_label;
    std::uint64_t m_total;
    std::uint64_t m_done = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_nextUpdate;
    bool m_onTerminal;
    bool m_shown = false;
};
