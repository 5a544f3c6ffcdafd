// The world of one history: a folder with key K1, one with key K2, a plain one and a temp folder, all empty, and the volume, whose
// process may end. Looking around is reading files; it disturbs nothing.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "explorer/Control.h"
#include "quelcrypt/IVirtualVolume.h"

// A word is a whole content of a document; each is stored by one step only. A set has the bits of its words.
using Word = int;
using WordSet = std::uint64_t;
inline constexpr Word kNothing = -1;  // an empty content
inline constexpr Word kTorn = -2;     // none of the words
inline WordSet Only(Word word) { return word < 0 ? 0 : WordSet{1} << word; }

struct StoredFile {
    bool isContainer;
    bool isBare;  // no byte at all
    Word word;
    bool operator==(const StoredFile&) const = default;
};

std::wstring LowerCase(std::wstring text);

// What was found on the disk.
struct Look {
    std::map<std::wstring, StoredFile> files;  // of the three folders, by lower-case path: L"k1\\doc.txt.zip"
    WordSet inFolders = 0;
    WordSet inTemp = 0;  // in temp files beside their tracking file
    bool tracksNothing = false;  // an empty temp file is tracked
    int keptFolders = 0;  // temp folders without a tracking file
    bool hasLitter = false;  // an empty temp folder, or a tracking file alone
};

class World {
public:
    explicit World(bool isEqual);  // isEqual: the words have one length, and somebody sets all times to one

    static IVirtualVolume* Volume();
    // Nothing is closed, and the next call is made by another process.
    static void EndProcess();
    // Does the volume hold handles of files or searches?
    static bool HoldsHandles();

    Word NewWord() { return m_words++; }
    std::string TextOf(Word word) const;
    // No other world has this number: with it in their names, documents are new to the volume.
    const std::wstring& Number() const { return m_number; }
    std::wstring VolumePath(const std::wstring& path) const;  // of a path like L"K1\\doc.txt"

    Look LookAround();
    // Stores a file as somebody outside. False: he was refused.
    enum class How { New, ByRename, InPlace };
    bool Store(const std::wstring& path, bool asContainer, Word word, How how);
    bool Remove(const std::wstring& path);
    // Opens all there is unshared, and deletes it. False: a file is held by somebody.
    bool Clear();

private:
    struct Stamp {
        std::uint64_t writeTime, size;
        bool operator==(const Stamp&) const = default;
    };
    // What was seen is seen again as long as the file or folder has the same stamp.
    template <class Sight>
    struct Remembered {
        Stamp stamp{};
        Sight sight{};
    };
    std::optional<Stamp> StampOf(const std::wstring& path) const;
    const std::vector<std::wstring>& NamesIn(const std::wstring& folder);
    const StoredFile& FileAt(const std::wstring& path);
    StoredFile Read(const std::wstring& path) const;
    void LookIntoTemp(Look& look);
    void EqualiseTimes();

    bool m_isEqual, m_remembers;
    int m_words = 0;
    std::wstring m_number;
    std::map<std::wstring, Remembered<std::vector<std::wstring>>> m_folders;
    std::map<std::wstring, Remembered<StoredFile>> m_files;
};
