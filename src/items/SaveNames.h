// The names under which an edit is saved when it cannot be saved under its own, and saving one edit at a time per container.
#pragma once

#include <memory>
#include <string>

#include "library/Locks.h"

enum class SaveName { ConflictedEdit = 0, BackupEdit = 1 };

// "report.docx" -> "report (HalvaneCloud conflicted edit 2024-05-01).docx", with the local date. number, from 2 on, tells
// later ones of a day apart: " (2)" stands before the extension. A stem too long for it is cut.
std::wstring SaveNameStr(const std::wstring& itemName, SaveName kind, int number = 1);

// Is there room in a file name for the container of an item of this name, and for those of its conflict names?
bool HasSaveNames(const std::wstring& itemName);

// Held while an item checks its container and replaces it: of two items that save one container, the second then sees
// what the first did. Different containers do not wait for each other. Throws std::bad_alloc.
class SaveGate {
public:
    // What a container is told apart by: its folder's identity, as far as that is known, and its name.
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

// Both gates of a move, taken in one order by everybody. The two paths may be one.
class SaveGates {
public:
    SaveGates(const std::wstring& sourcePath, const std::wstring& destPath);

private:
    SaveGates(const std::wstring& sourcePath, const std::wstring& destPath, const std::wstring& sourceFolderKey);
    SaveGates(const SaveGate::Key& source, const SaveGate::Key& dest);

    SaveGate m_first;
    SaveGate m_second;
};
