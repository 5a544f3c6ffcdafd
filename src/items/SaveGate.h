// The gate that allows one save of a container at a time.
#pragma once

#include <memory>
#include <string>

#include "library/Locks.h"

// Held while an item checks its container and replaces it: when two items save one container, the second sees
// what the first stored. Different containers do not wait for each other. Throws std::bad_alloc.
class SaveGate {
public:
    // Identifies a container: its folder's identity, as far as that is known, and its name.
    struct Key {
        std::wstring text;
    };
    static std::wstring FolderKeyOf(const std::wstring& folderPath);

    explicit SaveGate(const std::wstring& containerPath);
    explicit SaveGate(const Key& key);
    ~SaveGate();
    SaveGate(const SaveGate&) = delete;
    SaveGate& operator=(const SaveGate&) = delete;

private:
    std::wstring m_key;
    std::shared_ptr<CriticalSection> m_section;
};

// Both gates of a move, which every move takes in the same order. The two paths may be the same.
class SaveGates {
public:
    SaveGates(const std::wstring& sourcePath, const std::wstring& destPath);

private:
    SaveGates(const std::wstring& sourcePath, const std::wstring& destPath, const std::wstring& sourceFolderKey);
    SaveGates(const SaveGate::Key& source, const SaveGate::Key& dest);

    SaveGate m_first;
    SaveGate m_second;
};
