// A history: steps with one document in some order, and the judge that checks the disk after each of them.
//
// A word that is no longer found must be one that the step's actor knew and replaced. An opener knows what was stored at its
// open (CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING), or what its first access decrypted (OPEN_EXISTING), and what it wrote. An
// opener of a plain file replaces what is in the file at that moment; a step by path, or onto another name, what is there;
// a deletion what was there when it was marked; a save from outside what it overwrites. A word that is only in a temp file
// counts as found while its tracking file is beside it.
// At the end all is closed and unlocked, each as a step. Then an open shows what is stored, or the waiting edit of it;
// nothing is held open, no companion object exists, and nothing unfinished is left over.
#pragma once

#include <string>

#include "explorer/Steps.h"

struct Outcome {
    std::string failure;        // the first; empty: there was none
    bool isRefused = false;     // the last step
    bool wasFailed = false;     // the last step made the call that had to fail
    bool isLikeAStart = false;  // nothing was opened or locked yet, and no edit waits
    Steps next;                 // what can be done after the last step
};
// isPrinted: prints after each step which word is where.
Outcome Run(const Start& start, const Steps& steps, bool isPrinted = false);
// For a crash of Run, or if it does not return: how often it was called, and what it is doing.
int HistoriesRun();
const std::string& CurrentHistory();
