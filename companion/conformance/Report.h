// What the conformance check says: a line for each thing that the volume requires of its companion library, and under one that is not
// met what was seen instead.
#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace conformance {

// Thrown by a check: what it saw instead of what is required.
struct Unmet {
    std::string seen;
};

inline void Must(bool holds, const std::string& seenOtherwise) {
    if (!holds)
        throw Unmet{seenOtherwise};
}

// Empty when check found what is required; otherwise what it saw, which is also what the library threw.
std::string SeenInstead(const std::function<void()>& check);

class Report {
public:
    explicit Report(std::ostream& out) : m_out(out) {}

    void Require(const std::string& requirement, const std::function<void()>& check);
    // For what ends the program before the check under way can.
    void Stopped(const std::string& seen) { Print(seen); }
    int UnmetCount() const { return m_unmet; }

private:
    void Print(const std::string& seen);

    std::ostream& m_out;
    std::string m_requirement;
    int m_unmet = 0;
};

}  // namespace conformance
