#include "explorer/Steps.h"

#include <algorithm>

#include <windows.h>

namespace {

const char* const kOps[] = {
    "opens ",           "reads",           "writes",   "cuts", "deletes", "undeletes",       "renames to ",
    "closes",           "move to ",        "copy to ", "lock", "unlock",  "somebody stores", "somebody stores in place",
    "somebody deletes", "the process ends"};
const char* const kDispositions[] = {"", "new", "always new", "existing", "always", "truncating", "to read"};
const char* const kPlaceNames[] = {"home", "other", "key 2", "across", "case"};
const char* const kFailings[] = {"",      "no writer", "a writer throws", "Write fails", "Finish fails", "GetFileInformation fails",
                                 "fails", "throws"};

std::optional<Step> StepOf(const std::string& text) {
    for (int op = 0; op <= static_cast<int>(Op::EndProcess); ++op)
        for (int actor = 0; actor < 2; ++actor)
            for (int argument = 0; argument <= kOpenToRead; ++argument)
                for (const bool withToken : {false, true})
                    for (int failing = 0; failing <= static_cast<int>(Failing::NthThrows); ++failing)
                        for (int nth = 0; nth < 10; ++nth) {
                            const Step step{static_cast<Op>(op), actor, argument, withToken, static_cast<Failing>(failing), nth};
                            if (TextOf(step) == text)
                                return step;
                        }
    return std::nullopt;
}

}  // namespace

const char* NameOf(Place place) { return kPlaceNames[place]; }

std::string TextOf(const Step& step) {
    std::string text = step.op > Op::Close ? "" : step.actor == 0 ? "A " : "B ";
    text += kOps[static_cast<int>(step.op)];
    if (step.op == Op::Open)
        text += std::string(kDispositions[step.argument]) + (step.withToken ? " with the token" : "");
    if (step.op == Op::Rename || IsByPath(step.op))
        text += kPlaceNames[step.argument % kPlaces];
    if (step.failing != Failing::None)
        text += ", " + (step.nth ? "call " + std::to_string(step.nth) + " " : "") + kFailings[static_cast<int>(step.failing)];
    return text;
}

std::string TextOf(const Start& start, const Steps& steps) {
    std::string text = std::string(start.name) + ":";
    for (const Step& step : steps)
        text += (&step == steps.data() ? " " : "; ") + TextOf(step);
    return text;
}

std::optional<std::pair<const Start*, Steps>> HistoryOf(const std::string& text) {
    const std::size_t colon = std::min(text.find(':'), text.size());
    const auto start = std::find_if(Starts().begin(), Starts().end(), [&](const Start& any) { return text.substr(0, colon) == any.name; });
    Steps steps;
    for (std::size_t at = colon + 2, end = 0; at < text.size(); at = end + 2) {
        end = std::min(text.find(';', at), text.size());
        const std::optional<Step> step = StepOf(text.substr(at, end - at));
        if (!step)
            return std::nullopt;
        steps.push_back(*step);
    }
    return start == Starts().end() ? std::nullopt : std::optional(std::pair(&*start, steps));
}

const std::vector<Start>& Starts() {
    const auto waiting = [](int disposition) {
        return Steps{{Op::Open, 0, disposition}, {Op::Write}, {Op::Close, 0, 0, false, Failing::Finish}};
    };
    static const std::vector<Start> starts{
        {.name = "missing", .stored = {}},
        {.name = "encrypted", .stored = {{kHome, true}}},
        {.name = "plain", .stored = {{kHome, false}}},
        {.name = "conflict", .isConflictCopy = true, .stored = {{kHome, false}, {kHome, true}}},
        {.name = "waiting", .stored = {{kHome, true}}, .before = waiting(OPEN_EXISTING)},
        {.name = "waiting-new", .stored = {}, .before = waiting(CREATE_NEW)},
        {.name = "occupied",
         .isAbout = [](Op op) { return op == Op::Rename || IsByPath(op); },
         .stored = {{kHome, true}, {kOther, true}, {kKey2, true}, {kAcross, false}}},
        {.name = "edited", .stored = {{kHome, true}}, .before = {{Op::Open, 0, OPEN_EXISTING}, {Op::Write}}},
        {.name = "locked", .stored = {{kHome, true}}, .before = {{Op::Lock}, {Op::Open, 0, OPEN_EXISTING}, {Op::Write}}},
        {.name = "folder-missing", .isHomePlain = true, .stored = {}},
        {.name = "folder-stored", .isHomePlain = true, .stored = {{kHome, false}}},
        {.name = "equal",
         .isEqual = true,
         .isAbout = [](Op op) { return op == Op::Store || op == Op::StoreInPlace; },
         .stored = {{kHome, true}}},
    };
    return starts;
}
