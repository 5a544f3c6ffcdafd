// Counts the file system calls that modules make of the platform, by name. Each import is led through a few instructions that count
// and go on to the function, whatever its arguments are. What a module asks for by GetProcAddress is not seen, and what the shell's
// functions do inside counts as one call.
#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include <windows.h>

#include "harness/Imports.h"

class CallCounts {
public:
    // From now on; the modules must stay loaded.
    explicit CallCounts(std::initializer_list<const wchar_t*> modules) {
        for (const wchar_t* module : modules)
            ForEachImport(GetModuleHandleW(module), [&](const char* name, void** entry) {
                if (IsOfFileSystem(name))
                    LeadImport(
                        entry, [](void* count) { InterlockedIncrement64(static_cast<LONG64*>(count)); },
                        &m_counts.emplace_back(name, 0).second);
            });
    }
    CallCounts(const CallCounts&) = delete;
    CallCounts& operator=(const CallCounts&) = delete;

    // Since the last time; names says which.
    std::uint64_t Take(std::string* names = nullptr) {
        std::map<std::string, std::uint64_t> counts;
        for (auto& [name, counted] : m_counts)
            if (const LONG64 count = InterlockedExchange64(&counted, 0))
                counts[name] += static_cast<std::uint64_t>(count);
        std::uint64_t total = 0;
        for (const auto& [name, count] : counts) {
            total += count;
            if (names)
                *names += " " + name + " " + std::to_string(count);
        }
        return total;
    }

private:
    static bool IsOfFileSystem(std::string_view name) {
        for (const std::string_view part :
             {"FileW",         "FileExW",     "FileA",           "FileAttributes", "FileInformation", "FileSize",      "FilePointer",
              "FileTime",      "FileBuffers", "EndOfFile",       "ReadFile",       "WriteFile",       "Directory",     "PathName",
              "DiskFreeSpace", "CloseHandle", "DuplicateHandle", "FindClose",      "SHFileOperation", "PathFileExists"})
            if (name.find(part) != name.npos && name.find("SystemTime") == name.npos)  // those convert times
                return true;
        return false;
    }

    // Of each import; never deleted, since the modules go on counting.
    std::deque<std::pair<std::string, LONG64>>& m_counts = *new std::deque<std::pair<std::string, LONG64>>;
};
