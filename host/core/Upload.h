// New content for a file of the volume, all of it or nothing. The content is written under a name of its own beside the
// target and takes the target's place by renaming the open handle: unlike a close, that reports whether the content was
// encrypted and stored, and until it succeeds the old content stands. An upload that is given up is deleted through its
// handle, so that no half of it is ever stored; of an encrypted one nothing reaches the folder before it is placed.
#pragma once

#include "core/Volume.h"

class Upload {
public:
    // Starts an upload to target, a path as listed, whose folder must exist. A conflict copy that is replaced gets the
    // ordinary name of its container. Throws HostError when the folder is missing, when target is a folder, when an item of
    // another name would be lost, and when target is stored encrypted but its new content would not be.
    Upload(const Volume& volume, const VolumePath& target);
    // The same where that was looked up already: existing is what is at target, if anything, and no folder.
    Upload(const Volume& volume, const VolumePath& target, const std::optional<Entry>& existing);
    // Gives up what was not placed.
    ~Upload();
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    void Write(const void* data, std::size_t size);
    // Where the content goes; once it is placed, the path that it is listed under: what is itself a container, and what took the place
    // of a locked conflict copy, is listed under another name.
    const VolumePath& Target() const { return m_target; }
    // What stands there, once it is placed.
    const Entry& Stored() const { return m_stored; }
    // Puts the content in the target's place with the times of findData (0: now) and makes sure that the volume shows it
    // there. lockToken may be null: then it goes under the lock that this process holds on the target, if any. Throws
    // HostError; the old content then still stands, unless the message says otherwise.
    void Place(const VirtFindData& times, const wchar_t* lockToken = nullptr);

private:
    bool IsEncrypted() const;
    void RequireFit(const std::optional<Entry>& existing) const;
    void Verify();

    const Volume& m_volume;
    VolumePath m_target;
    std::optional<Entry> m_replacedConflict;
    FileHandle m_file;
    bool m_encrypted = false;
    Entry m_stored{m_target};
    std::uint64_t m_written = 0;
};
