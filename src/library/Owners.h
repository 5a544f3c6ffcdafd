// Owner types for what the companion library and the shell hand out, as those in common/Owners.h.
#pragma once

#include <objbase.h>

#include "common/Owners.h"
#include "library/CompanionCall.h"

// A pointer to an object of the companion library. Release is foreign code: it may throw, and an owner must not.
template <class Interface>
struct LibraryObjectPolicy {
    using Resource = Interface*;
    static Interface* Empty() { return nullptr; }
    static void Close(Interface* object) {
        try {
            CallCompanion([object] { object->Release(); });
        } catch (...) {  // nothing can be done; the object counts as released
        }
    }
};
template <class Interface>
using LibraryPtr = Owner<LibraryObjectPolicy<Interface>>;

template <class Type>
struct ShellMemoryPolicy {
    using Resource = Type*;
    static Type* Empty() { return nullptr; }
    static void Close(Type* memory) { CoTaskMemFree(memory); }
};
template <class Type>
using ShellMemoryPtr = Owner<ShellMemoryPolicy<Type>>;
