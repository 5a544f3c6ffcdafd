// Counts the file system calls that modules make of the platform, by name. Each import is led through a few instructions that count
// and go on to the function, whatever its arguments are. What a module asks for by GetProcAddress is not seen, and what the shell's
// functions do inside counts as one call.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include "harness/Imports.h"

class CallCounts {
public:
    // From now on; the modules must stay loaded.
    explicit CallCounts(std::initializer_list<const wchar_t*> modules) {
        m_memory = static_cast<Counter*>(VirtualAlloc(nullptr, kMost * sizeof(Counter), MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
        for (const wchar_t* module : modules)
            ForEachImport(GetModuleHandleW(module), [&](const char* name, void** entry) {
                if (IsOfFileSystem(name) && m_names.size() < kMost)
                    SetImport(entry, m_memory[m_names.size()].Lead(*entry)), m_names.emplace_back(name);
            });
    }
    CallCounts(const CallCounts&) = delete;
    CallCounts& operator=(const CallCounts&) = delete;

    // Since the last time; names says which.
    std::uint64_t Take(std::string* names = nullptr) {
        std::map<std::string, std::uint64_t> counts;
        for (std::size_t at = 0; at < m_names.size(); ++at)
            if (const LONG64 count = InterlockedExchange64(&m_memory[at].count, 0))
                counts[m_names[at]] += static_cast<std::uint64_t>(count);
        std::uint64_t total = 0;
        for (const auto& [name, count] : counts) {
            total += count;
            if (names)
                *names += " " + name + " " + std::to_string(count);
        }
        return total;
    }

private:
    static constexpr std::size_t kMost = 256;

    struct Counter {
        volatile LONG64 count;
        void* function;
        unsigned char code[16];

        // lock inc qword ptr [count]; jmp [function], both relative to the next instruction ("Intel 64 Software Developer's Manual",
        // volume 2: INC, JMP)
        void* Lead(void* to) {
            constexpr unsigned char kCode[] = {0xF0, 0x48, 0xFF, 0x05, 0xE8, 0xFF, 0xFF, 0xFF, 0xFF, 0x25, 0xEA, 0xFF, 0xFF, 0xFF};
            function = to;
            std::memcpy(code, kCode, sizeof(kCode));
            return code;
        }
    };
    static_assert(offsetof(Counter, code) == 16);

    static bool IsOfFileSystem(std::string_view name) {
        for (const std::string_view part :
             {"FileW",         "FileExW",     "FileA",           "FileAttributes", "FileInformation", "FileSize",      "FilePointer",
              "FileTime",      "FileBuffers", "EndOfFile",       "ReadFile",       "WriteFile",       "Directory",     "PathName",
              "DiskFreeSpace", "CloseHandle", "DuplicateHandle", "FindClose",      "SHFileOperation", "PathFileExists"})
            if (name.find(part) != name.npos && name.find("SystemTime") == name.npos)  // those convert times
                return true;
        return false;
    }

    Counter* m_memory = nullptr;
    std::vector<std::string> m_names;
};
