// How what the volume lists is stored on disk, and why: what a person must know of each file.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "core/Volume.h"

enum class Stored { Encrypted, ConflictCopy, Damaged, NoPolicy, Excluded, NoExtension, InClear };

// "encrypted", "conflict", "damaged"; of everything else "plain".
const char* StoredWord(Stored stored);
// "not encrypted: its name has no extension"; of Encrypted "encrypted".
const char* StoredReason(Stored stored);

// For the files of one folder, whose policy is asked for once.
class Storage {
public:
    Storage(const Volume& volume, const VolumePath& folder);
    // A ZIP file that is none is opened to tell it from a damaged container; nothing else is. Not for folders.
    Stored Of(const Entry& entry) const;
    // Would a document that gets this name here lose its encryption, although the folder's documents have one?
    bool Exposes(const std::wstring& name) const { return m_hasPolicy && ReasonInClear(name) != Stored::InClear; }
    // Are its documents stored encrypted?
    bool HasPolicy() const { return m_hasPolicy; }

private:
    static Stored ReasonInClear(const std::wstring& name);

    std::wstring m_folder;
    bool m_hasPolicy;
};
Stored StoredAs(const Volume& volume, const Entry& entry);
// Is it the name of what the volume makes beside a plain file, before it takes that one's place? A killed program leaves it.
bool IsBegunCopy(std::wstring_view name);

// The path on disk by the configuration's own words, as the companion library knows it. Empty for the root.
std::wstring ConfiguredPath(const Volume& volume, const VolumePath& path);
// Of the file on disk that holds the entry.
std::wstring ConfiguredPath(const Volume& volume, const Entry& entry);

// Hands out the files at path and, of a folder, below it, in order; links are left out. Each folder is told of before. Throws HostError.
void ForEachFile(const Volume& volume, const VolumePath& path, const std::function<void(const Entry&, Stored)>& use,
                 const std::function<void(const VolumePath&)>& enter = nullptr);
// For a document that Find does not find: throws HostError when its container is there, damaged.
void RequireUndamaged(const Volume& volume, const VolumePath& path);
