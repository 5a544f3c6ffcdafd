// One order of steps around one document, and the judge that looks at the disk after each of them.
//
// A word that is no longer found must be one that the step's actor knew and replaced. An opener knows what was stored at its
// open (CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING), or what its first access decrypted (OPEN_EXISTING), and what it wrote. Who
// works on a plain file in place replaces what is in it at that moment; a step by path, or onto another name, what stands there;
// a deletion what was there when it was marked; somebody outside what he stores over. A word that only a temp file holds
// counts as found while its tracking file lies beside it.
#pragma once

#include <compare>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "explorer/Control.h"
#include "explorer/World.h"

enum class Op { Open, Read, Write, Cut, Delete, Undelete, Rename, Close, Move, Copy, Lock, Unlock, Store, StoreInPlace, Remove, EndProcess };
// Where a document may lie: its home, another name there, the folder of another key, a folder that stores in the other way,
// and its home in another letter case.
enum Place { kHome, kOther, kKey2, kAcross, kCase, kPlaces };
inline constexpr int kOpenToRead = 6;  // beside the dispositions 1 to 5: OPEN_EXISTING with read access alone

struct Step {
    Op op;
    int actor = 0;             // 0 is A, 1 is B; of steps on a handle
    int argument = 0;          // a disposition, or a Place
    bool withToken = false;    // of an open: the last token that was handed out, also after its unlock
    Failing failing = Failing::None;
    int nth = 0;
    auto operator<=>(const Step&) const = default;
};
std::string TextOf(const Step& step);
std::optional<Step> StepOfText(const std::string& text);

struct Start {
    const char* name;
    bool isHomePlain;
    bool isHomeConflictCopy;  // the document is the container beside a plain file of its name
    bool isEqual;             // words have one length, stored files one time
    bool isMinor;  // gone through one step less deep
    std::vector<std::pair<int, bool>> stored;  // where, and as a container?
    std::vector<Step> before;
};
const std::vector<Start>& Starts();

struct Outcome {
    std::string failure;     // empty: all was well
    bool isRefused = false;  // the last step
    bool isLikeAStart = false;  // nothing was opened or locked yet, and no edit waits
    std::vector<Step> next;  // what can be done after the last step
};
// Goes through the steps, then closes and unlocks all, opens what is there anew, and looks for what was left behind.
Outcome Run(const Start& start, const std::vector<Step>& steps);
// For whoever finds that Run crashed or does not return: how often it was called, and what it is doing.
int HistoriesRun();
const std::string& CurrentHistory();
std::string TextOf(const Start& start, const std::vector<Step>& steps);
