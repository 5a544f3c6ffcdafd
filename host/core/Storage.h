// How each listed file is stored on disk, encrypted or not, and why.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "core/Volume.h"

enum class Stored { Encrypted, ConflictCopy, Damaged, NoPolicy, Excluded, NoExtension, InClear, Configuration, BadName };

// "encrypted", "conflict", "damaged", or else "plain".
const char* StoredWord(Stored stored);
// "not encrypted: its name has no extension"; for Encrypted "encrypted".
const char* StoredReason(Stored stored);
// The same without its "not encrypted", for "plain".
std::string WhyInClear(Stored stored);

// For the files of one folder, whose policy is read once.
class Storage {
public:
    Storage(const Volume& volume, const VolumePath& folder);
    // Opens only ZIP files that are not containers, to find damaged containers among them. For folders only BadName means something.
    Stored Of(const Entry& entry) const;
    // How a new document of this name is stored.
    Stored OfNew(const std::wstring& name) const { return m_hasPolicy ? OfNewEncrypted(name) : Stored::NoPolicy; }
    // The same in any folder with a policy.
    static Stored OfNewEncrypted(const std::wstring& name);
    // Would a document under this name be stored unencrypted, although the folder has a policy?
    bool Exposes(const std::wstring& name) const { return m_hasPolicy && OfNew(name) != Stored::Encrypted; }
    // Are the folder's documents stored encrypted?
    bool HasPolicy() const { return m_hasPolicy; }

private:
    static Stored ReasonInClear(const std::wstring& name);

    std::wstring m_folder, m_configuration;  // the configuration's name, if it is in this folder
    bool m_hasPolicy;
};
Stored StoredAs(const Volume& volume, const Entry& entry);

// What an operation stores unencrypted, to be told once at its end.
class Exposed {
public:
    // A file was stored there that came from outside.
    void Note(const VolumePath& path, Stored stored);
    // A file of the volume was moved or copied to target: notes it if only the old one was encrypted.
    void Note(const Volume& volume, const Entry& source, const VolumePath& target);
    // "Docs/id_rsa: stored not encrypted: its name has no extension (and 3 more files)"; empty: nothing was.
    std::string Text() const;

private:
    std::string m_first;
    std::size_t m_count = 0;
};

// The path on disk with the mount folder as it is configured, which the companion library needs. Empty for the root.
std::wstring ConfiguredPath(const Volume& volume, const VolumePath& path);
// The same for the file on disk that holds the entry.
std::wstring ConfiguredPath(const Volume& volume, const Entry& entry);

// Calls use for the file at path, or in order for each file below the folder, except links, and also, with Stored::BadName, for each folder
// with such a name, which it leaves out. Before, calls the second function for each folder. False: a folder below it could not be read,
// which it printed. Throws HostError.
bool ForEachFile(const Volume& volume, const VolumePath& path, const std::function<void(const Entry&, Stored)>& use,
                 const std::function<void(const VolumePath&)>& enter = nullptr);
// For a document that Find does not find: throws HostError when it has a damaged container.
void RequireUndamaged(const Volume& volume, const VolumePath& path);
