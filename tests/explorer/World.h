// The world of one history: a folder with key K1, one with key K2, a plain one and the temp folder, all empty. It is observed by
// reading files, which disturbs nothing.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// A word is the whole content of a document; each is stored by one step only. A set has one bit for each word.
using Word = int;
using WordSet = std::uint64_t;
inline constexpr Word kNothing = -1;  // an empty content
inline constexpr Word kTorn = -2;     // none of the words
inline WordSet Only(Word word) { return word < 0 ? 0 : WordSet{1} << word; }

struct StoredFile {
    Word word = kTorn;
    bool isBare = false;  // a file of 0 bytes, so not a container
    bool operator==(const StoredFile&) const = default;
};

std::wstring LowerCase(std::wstring text);

// What was found on the disk.
struct Look {
    std::map<std::wstring, StoredFile> files;  // of the three folders, by lower-case path: L"k1\\doc7.txt.zip"
    WordSet inFolders = 0;
    WordSet inTemp = 0;                // in temp files beside their tracking file
    std::vector<std::string> ofEmpty;  // the tracking files of those that are empty
    int keptFolders = 0;               // temp folders without a tracking file
    bool hasLitter = false;            // a temp folder without content
};

class World {
public:
    explicit World(bool isEqual);  // isEqual: the words have one length, and what somebody stores has one time

    Word NewWord() { return m_words++; }
    std::string TextOf(Word word) const;
    // A different number for each world; documents have it in their names, so that they are new to the volume.
    const std::wstring& Number() const { return m_number; }
    std::wstring VolumePath(const std::wstring& path) const;  // of a path like L"K1\\doc7.txt"

    Look LookAround() const;
    // Stores a file like somebody outside. False: refused.
    enum class How { New, ByRename, InPlace };
    bool Store(const std::wstring& path, bool asContainer, Word word, How how);
    bool Remove(const std::wstring& path);
    // Opens every file unshared, and deletes it. False: somebody holds a file.
    bool Clear();

private:
    StoredFile FileAt(const std::wstring& path) const;
    void LookIntoTemp(Look& look) const;

    bool m_isEqual;
    int m_words = 0;
    std::wstring m_number;
};
