// The steps with one document, and their text form: "encrypted: A opens existing; A writes; lock".
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

// The paths of a document: its home, another name there, another key's folder, a folder of the other form, its home in another letter case.
enum Place { kHome, kOther, kKey2, kAcross, kCase, kPlaces };
inline constexpr int kOpenToRead = 6;  // besides the dispositions 1 to 5: OPEN_EXISTING with read access only

// Which call of the step fails, by returning null, false or 0, or by throwing. The last two: the nth call about containers.
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
