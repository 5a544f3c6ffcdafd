// What somebody has of a document, and knows of it.
#pragma once

#include "explorer/Steps.h"
#include "explorer/World.h"

// The content that somebody has, and what he knew when he made it.
struct Edit {
    Word word = kNothing;
    WordSet known = 0;
    bool knowsEmpty = false;  // and an empty document
    bool isUnsure = false;    // what it is or began from may be one thing or another
    WordSet Replaced() const { return known & ~Only(word); }
};

struct Opener : Edit {
    void* file = nullptr;
    int place = kHome;
    int named = kHome;  // what its handle was opened or renamed by last
    int disposition = 0;
    bool mayOnlyRead = false;
    bool startsEmpty = false;  // what it writes first takes the place of all, also where it is moved to
    bool isPlain = false;
    bool sharesLock = false;  // with the lock's handle, also when that is released
    bool isAccessed = false;  // an encrypted one: its temp file is made
    bool isDirty = false;     // its temp file holds what is not stored
    bool isDeleted = false;
    WordSet moved = 0;   // an edit that waited, and goes with a rename
    WordSet marked = 0;  // what was there when it was marked for deletion
};
