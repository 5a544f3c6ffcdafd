// One order of steps around one document, and the judge that looks at the disk after each of them.
//
// A word that is no longer found must be one that the step's actor knew and replaced. An opener knows what was stored at its
// open (CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING), or what its first access decrypted (OPEN_EXISTING), and what it wrote. Who
// works on a plain file in place replaces what is in it at that moment; a step by path, or onto another name, what stands there;
// a deletion what was there when it was marked; somebody outside what he stores over. A word that only a temp file holds
// counts as found while its tracking file lies beside it.
//
// At the end all is closed and unlocked, each as a step. Then what is stored, or the edit that waits for it, is shown to who opens
// it; nothing is held open, no companion object lives, and nothing unfinished or without an owner is left.
#pragma once

#include <string>

#include "explorer/Steps.h"

struct Outcome {
    std::string failure;        // the first; empty: all was well
    bool isRefused = false;     // the last step
    bool wasFailed = false;     // the last step made the call that was to fail
    bool isLikeAStart = false;  // nothing was opened or locked yet, and no edit waits
    Steps next;                 // what can be done after the last step
};
Outcome Run(const Start& start, const Steps& steps);
// For whoever finds that Run crashed or does not return: how often it was called, and what it is doing.
int HistoriesRun();
const std::string& CurrentHistory();
