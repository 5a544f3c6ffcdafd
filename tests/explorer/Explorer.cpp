// Tries everything that can be done to one document, in every order up to a number of steps, and then longer random orders.
//
// explorer [START...] [--depth N] [--part N --parts N] [--walks N] [--length N] [--seed N]
// explorer --history "START: STEP; STEP; ..."
//
// The enumeration takes all steps that Next (History.cpp) offers after a history. Each step but the deepest is repeated for every call
// about containers that it makes to the companion library, with that call failing or throwing. Not enumerated:
// - steps without effect: calls on closed handles, an undelete without a delete, two reads in a row, B before A has acted (they are
//   alike), and as the last step a read, an open that starts nothing, or the close that follows anyway;
// - what another start begins with: steps after others from outside or by path only, and after the end of the process (but then temp
//   files of the ended process may exist, which only walks continue with);
// - B's opens that differ from A's by OPEN_ALWAYS, TRUNCATE_EXISTING or reading only, deletes and renames by an opener that only reads,
//   and a lock's token given explicitly (the volume uses it anyway): these could find more, and walks take the first and the last;
// - steps after a refused call; from the starts "occupied" and "equal", histories that replace nothing, or store nothing from outside.
// With --parts N, only part --part (from 0) of the histories is tried, so that several processes can share the work.
// Two openers who both act need four steps: the starts "edited" and "locked" are half-way there, and walks go further. They take any step,
// even refused ones, and sometimes let the nth call to the companion library fail or throw.
//
// Ends with 1 when a history failed. Of those that fail in the same way the first is printed, and the others are counted.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include <windows.h>

#include "explorer/History.h"

namespace {

class Explorer {
public:
    Explorer(const Start& start, int part, int parts) : m_start(start), m_part(part), m_parts(parts) {}

    // Every history that begins with these steps and has at most so many.
    void Deepen(Steps& steps, int left) {
        const Outcome outcome = Judge(steps);
        if (left == 0 || outcome.isRefused || !outcome.failure.empty())
            return;
        FailEachCall(steps);
        if (outcome.isLikeAStart)
            return;
        for (const Step& step : outcome.next)
            if (IsWorthwhile(steps, step, left == 1) && IsOfThisPart(steps.size())) {
                steps.push_back(step);
                Deepen(steps, left - 1);
                steps.pop_back();
            }
    }

    void Walk(std::mt19937& random, int length) {
        const auto below = [&](std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(random); };
        Steps steps;
        Outcome outcome = Judge(steps);
        for (int step = 0; step < length && outcome.failure.empty(); ++step) {
            if (outcome.isRefused)
                steps.pop_back();
            else
                m_next = outcome.next;
            steps.push_back(m_next[below(m_next.size())]);
            Step& last = steps.back();
            last.withToken = last.op == Op::Open && below(4) == 0;
            if (MayFail(last) && below(10) == 0) {
                last.failing = below(2) ? Failing::Nth : Failing::NthThrows;
                last.nth = 1 + static_cast<int>(below(6));
            }
            outcome = Judge(steps);
        }
    }

    // Has one failed?
    bool Report() const {
        for (const auto& [kind, first] : m_failures)
            std::printf("%s\n    %s; %d times\n", TextOf(m_start, first.first).c_str(), kind.c_str(), first.second);
        return !m_failures.empty();
    }
    int Histories() const { return m_histories; }

private:
    // Not for opens, nor for a conflict copy from Move on: when the information call fails, the container is an ordinary file there.
    bool MayFail(const Step& step) const {
        return step.failing == Failing::None && step.op != Op::Open && step.op < (m_start.isConflictCopy ? Op::Move : Op::Store);
    }

    // Repeats the last step for each call that it makes to the companion library, with that call failing or throwing.
    void FailEachCall(Steps& steps) {
        if (steps.empty() || !MayFail(steps.back()))
            return;
        Step& last = steps.back();
        for (last.failing = Failing::Nth; last.failing <= Failing::NthThrows; last.failing = Failing(int(last.failing) + 1))
            for (last.nth = 1; Judge(steps).wasFailed; ++last.nth) {
            }
        last.failing = Failing::None;
        last.nth = 0;
    }

    // Left out of the enumeration, see above.
    bool IsWorthwhile(const Steps& steps, const Step& step, bool isLast) const {
        const bool endsSo = step.op == Op::Close && step.actor == 0 && step.failing == Failing::None;
        if (!steps.empty() && (steps.back().op == Op::EndProcess || (step.op == Op::Read && step == steps.back())))
            return false;
        if (step.op == Op::Open && step.actor == 1 && step.argument > OPEN_EXISTING)
            return false;
        if (isLast && (step.op == Op::Read || endsSo || (step.op == Op::Open && (step.actor == 0 || step.argument == OPEN_EXISTING))))
            return false;
        const auto isAbout = [&](const Step& any) { return m_start.isAbout(any.op); };
        return !isLast || !m_start.isAbout || isAbout(step) || std::any_of(steps.begin(), steps.end(), isAbout);
    }

    // The histories with the same first two steps are one share of the work.
    bool IsOfThisPart(std::size_t stepsBefore) { return stepsBefore != 1 || m_shares++ % m_parts == m_part; }

    Outcome Judge(const Steps& steps) {
        ++m_histories;
        const Outcome outcome = Run(m_start, steps);
        if (!outcome.failure.empty())
            ++m_failures.try_emplace(Kind(outcome.failure), steps, 0).first->second.second;
        return outcome;
    }

    // Two failures are of one kind if they differ only in the word and the step.
    static std::string Kind(const std::string& failure) {
        return failure.starts_with("word ") ? "a word is lost" : failure.substr(0, failure.find(" ("));
    }

    const Start& m_start;
    const int m_part, m_parts;
    int m_shares = 0;
    Steps m_next;
    std::map<std::string, std::pair<Steps, int>> m_failures;  // the first of each kind, and how often
    int m_histories = 0;
};

int RunOne(const std::string& text) {
    const auto history = HistoryOf(text);
    if (!history) {
        std::printf("This is no history: %s\n", text.c_str());
        return 2;
    }
    const Outcome outcome = Run(*history->first, history->second, true);
    std::printf("%s\n    %s%s\n", text.c_str(), outcome.failure.empty() ? "all is well" : outcome.failure.c_str(),
                outcome.isRefused ? "; the last step was refused" : "");
    return !outcome.failure.empty();
}

// A history takes milliseconds. Without this, one that does not end would print nothing.
DWORD WINAPI TellOfHang(void*) {
    int before = 0;
    do {
        before = HistoriesRun();
        Sleep(60'000);
    } while (before != HistoriesRun());
    std::printf("%s\n    hangs\n", CurrentHistory().c_str());
    std::fflush(stdout);
    return !TerminateProcess(GetCurrentProcess(), 4);
}

LONG WINAPI TellOfCrash(EXCEPTION_POINTERS* info) {
    std::printf("%s\n    crashes with %08lx\n", CurrentHistory().c_str(), info->ExceptionRecord->ExceptionCode);
    std::fflush(stdout);
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

int main(int argc, char** argv) {
    std::map<std::string, int> numbers{{"--depth", 3}, {"--part", 0},    {"--parts", 1},
                                       {"--walks", 0}, {"--length", 10}, {"--seed", static_cast<int>(GetTickCount() & 0xFFFFF)}};
    std::set<std::string> names;
    SetUnhandledExceptionFilter(TellOfCrash);
    CreateThread(nullptr, 0, TellOfHang, nullptr, 0, nullptr);
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        if (word == "--history" && at + 1 < argc)
            return RunOne(argv[at + 1]);
        if (numbers.count(word) && at + 1 < argc)
            numbers[word] = std::atoi(argv[++at]);
        else if (const auto history = HistoryOf(word); history && history->second.empty())
            names.insert(history->first->name);
        else
            return std::printf("What start is \"%s\"?\n", argv[at]), 2;
    }
    std::mt19937 random(static_cast<unsigned>(numbers["--seed"]));
    bool hasFailed = false;
    for (const Start& start : Starts()) {
        if (!names.empty() && !names.contains(start.name))
            continue;
        Explorer explorer(start, numbers["--part"], numbers["--parts"]);
        Steps steps;
        const ULONGLONG begin = GetTickCount64();
        if (numbers["--depth"] > 0)
            explorer.Deepen(steps, numbers["--depth"]);
        std::printf("%s: %d histories in %.1f s", start.name, explorer.Histories(), double(GetTickCount64() - begin) / 1000);
        for (int walk = 0; walk < numbers["--walks"]; ++walk)
            explorer.Walk(random, numbers["--length"]);
        std::printf(", with walks of seed %d %d\n", numbers["--seed"], explorer.Histories());
        hasFailed |= explorer.Report();
        std::fflush(stdout);
    }
    return hasFailed;
}
