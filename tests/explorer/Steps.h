// What can be done to one document, in words that can be read back: "encrypted: A opens existing; A writes; lock".
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// clang-format off
enum class Op {
    Open, Read, Write, Cut, Delete, Undelete, Rename, Close, Move, Copy, Lock, Unlock, Store, StoreInPlace, Remove, EndProcess
};
// clang-format on
inline bool IsOutside(Op op) { return op >= Op::Store; }  // by somebody outside, or by nobody
inline bool IsByPath(Op op) { return op == Op::Move || op == Op::Copy; }

// Where a document may lie: its home, another name there, the folder of another key, a folder that stores in the other way, and
// its home in another letter case.
enum Place { kHome, kOther, kKey2, kAcross, kCase, kPlaces };
inline constexpr int kOpenToRead = 6;  // beside the dispositions 1 to 5: OPEN_EXISTING with read access alone

// Which calls of the step fail: these return null, false or 0, or throw. Of the last two the nth call that is about containers.
enum class Failing { None, NoWriter, ThrowingWriter, Write, Finish, Information, Nth, NthThrows };

struct Step {
    Op op;
    int actor = 0;           // 0 is A, 1 is B; of steps on a handle
    int argument = 0;        // a disposition, or a Place
    bool withToken = false;  // of an open: the last token that was handed out, also after its unlock
    Failing failing = Failing::None;
    int nth = 0;
    auto operator<=>(const Step&) const = default;
};
using Steps = std::vector<Step>;

struct Start {
    const char* name;
    bool isHomePlain = false;
    bool isConflictCopy = false;                 // the document is the container beside a plain file of its name
    bool isEqual = false;                        // words have one length, what somebody stores one time
    bool (*isAbout)(Op) = nullptr;               // histories without such a step are gone through from another start
    std::vector<std::pair<Place, bool>> stored;  // where, and as a container?
    Steps before = {};
};
const std::vector<Start>& Starts();

const char* NameOf(Place place);
std::string TextOf(const Step& step);
std::string TextOf(const Start& start, const Steps& steps);
std::optional<std::pair<const Start*, Steps>> HistoryOf(const std::string& text);
