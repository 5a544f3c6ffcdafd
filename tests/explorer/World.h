// The world of one history: a folder with key K1, one with key K2, a plain one and a temp folder, all its own, and the volume,
// whose process may end. Looking around is reading files; it disturbs nothing.
#pragma once

#include <cstdint>
#include <map>
#include <string>

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

// What was found on the disk.
struct Look {
    std::map<std::wstring, StoredFile> files;  // of the three folders, by lower-case path: L"k1\\doc.txt.zip"
    std::map<std::wstring, StoredFile> temps;  // content in temp folders, by path
    WordSet inFolders = 0;
    WordSet inTemp = 0;  // in temp files beside their tracking file
    int keptFolders = 0;  // temp folders without a tracking file
    bool hasLitter = false;  // an empty temp folder, or a tracking file alone
};

class World {
public:
    explicit World(bool isEqual);  // isEqual: the words have one length, and somebody sets all times to one
    ~World();

    static IVirtualVolume* Volume();
    // Nothing is closed, and the next call is made by another process.
    static void EndProcess();
    // Does the volume hold handles of files or searches?
    static bool HoldsHandles();

    Word NewWord() { return m_words++; }
    std::string TextOf(Word word) const;
    std::wstring VolumePath(const std::wstring& path) const;  // of a path like L"K1\\doc.txt"

    Look LookAround() const;
    // Stores a file as somebody outside: over what is there, or in it. False: he was refused.
    bool Store(const std::wstring& path, bool asContainer, Word word, bool inPlace);
    bool Remove(const std::wstring& path);
    // Opens what was found unshared, and deletes it. False: a file is held by somebody.
    bool Clear(const Look& look);

private:
    StoredFile ReadStored(const std::wstring& path) const;
    void LookIntoTemp(Look& look) const;
    void EqualiseTimes() const;

    bool m_isEqual;
    int m_words = 0;
    std::wstring m_name, m_path;
};
