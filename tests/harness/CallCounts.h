// Counts the file system calls that modules make of the platform, by name. What a module asks for by GetProcAddress is not seen, and what
// the shell's functions do inside counts as one call.
#pragma once

#include <cstdio>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

#include <windows.h>

#include <gtest/gtest.h>

#include "harness/Imports.h"

class CallCounts {
public:
    // From now on; the modules must stay loaded.
    explicit CallCounts(std::initializer_list<const wchar_t*> modules) {
        for (const wchar_t* module : modules)
            ForEachImport(GetModuleHandleW(module), [&](const char* name, void** entry) {
                if (IsOfFileSystem(name))
                    LeadImport(
                        entry, [](void* count) { InterlockedIncrement64(static_cast<LONG64*>(count)); }, &m_counts[name]);
            });
    }
    CallCounts(const CallCounts&) = delete;
    CallCounts& operator=(const CallCounts&) = delete;

    // Prints what action costs, which may not be more than the budget.
    void Hold(const std::string& what, LONG64 budget, const std::function<void()>& action) {
        for (auto& [name, count] : m_counts)
            InterlockedExchange64(&count, 0);
        action();
        LONG64 total = 0;
        std::string names;
        for (const auto& [name, count] : m_counts) {
            total += count;
            names += count ? " " + name + " " + std::to_string(count) : "";
        }
        std::printf("%-44s %4lld of %4lld:%s\n", what.c_str(), total, budget, names.c_str());
        EXPECT_LE(total, budget) << what << names;
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

    // By function; never deleted, since the modules go on counting.
    std::map<std::string, LONG64>& m_counts = *new std::map<std::string, LONG64>;
};
