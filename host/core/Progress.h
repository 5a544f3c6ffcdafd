// A progress line on standard error for work that takes longer than a moment: files, bytes, rate and time left. In a pipe or file it
// prints nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class Progress {
public:
    // Totals of 0 are not known; without both no time left is shown. One file is not counted.
    explicit Progress(std::string label, std::uint64_t totalBytes = 0, std::size_t totalFiles = 0);
    // Erases the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Advance(std::uint64_t bytes);
    // The next file is begun.
    void NextFile();
    // Is there a terminal to show it on?
    bool IsSeen() const { return m_onTerminal; }
    // Names a step of the volume whose progress cannot be measured; shown when it will take long.
    void Say(const std::string& what);

private:
    using Clock = std::chrono::steady_clock;

    void ShowIfDue();
    std::string Line(double seconds) const;
    void Show(const std::string& line);

    std::string m_label;
    std::uint64_t m_totalBytes, m_bytes = 0;
    std::size_t m_totalFiles, m_files = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_nextUpdate;
    bool m_onTerminal;
    bool m_isShown = false;
};
