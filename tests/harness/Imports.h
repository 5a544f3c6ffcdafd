// Replaces what a loaded module imports: from then on the module calls the replacement where it would have called the
// platform, and nobody else does. Ends with the module: one that is loaded again imports the platform's functions again.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include <windows.h>

// Calls visit(name, entry) for each function that module imports by name; entry is where the module keeps the address it calls.
template <class Visit>
void ForEachImport(HMODULE module, Visit visit) {
    auto* const base = reinterpret_cast<char*>(module);
    const auto* const headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0)
        return;
    for (auto* from = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress); from->FirstThunk != 0; ++from) {
        const auto* name = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + from->OriginalFirstThunk);
        auto* address = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + from->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++address)
            if (!IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal))
                visit(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData)->Name,
                      reinterpret_cast<void**>(&address->u1.Function));
    }
}

inline void SetImport(void** entry, void* address) {
    DWORD protection = 0;
    if (!VirtualProtect(entry, sizeof(*entry), PAGE_READWRITE, &protection))
        return;
    *entry = address;
    VirtualProtect(entry, sizeof(*entry), protection, &protection);
}

// By a function of the same type, or a lambda that becomes one. Returns what the module called before; null when it does not import it.
#define REPLACE(module, function, ...) Replace<decltype(&function)>(module, #function, __VA_ARGS__)
template <class Function>
Function Replace(HMODULE module, const char* function, std::type_identity_t<Function> replacement) {
    void* before = nullptr;
    ForEachImport(module, [&](const char* name, void** entry) {
        if (std::strcmp(name, function) == 0)
            before = *entry, SetImport(entry, reinterpret_cast<void*>(replacement));
    });
    return reinterpret_cast<Function>(before);
}

// From now on the import calls before(context) and then goes on to its function, whatever the arguments are.
inline void LeadImport(void** entry, void (*before)(void*), void* context) {
    // push rcx, rdx, r8, r9; sub rsp, 40; mov rcx, [context]; call [before]; add rsp, 40; pop r9, r8, rdx, rcx; jmp [function], those
    // relative to the next instruction ("Intel 64 Software Developer's Manual", volume 2)
    constexpr unsigned char kCode[] = {0x51, 0x52, 0x41, 0x50, 0x41, 0x51, 0x48, 0x83, 0xEC, 0x28, 0x48, 0x8B, 0x0D,
                                       0xDF, 0xFF, 0xFF, 0xFF, 0xFF, 0x15, 0xD1, 0xFF, 0xFF, 0xFF, 0x48, 0x83, 0xC4,
                                       0x28, 0x41, 0x59, 0x41, 0x58, 0x5A, 0x59, 0xFF, 0x25, 0xD1, 0xFF, 0xFF, 0xFF};
    struct Way {
        void (*before)(void*);
        void *context, *function;
        unsigned char code[sizeof(kCode)];
    };
    static_assert(offsetof(Way, code) == 24);
    auto* const way = static_cast<Way*>(VirtualAlloc(nullptr, sizeof(Way), MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    *way = {before, context, *entry, {}};
    std::memcpy(way->code, kCode, sizeof(kCode));
    SetImport(entry, way->code);
}
