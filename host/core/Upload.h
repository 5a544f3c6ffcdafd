// New content for a file of the volume, stored completely or not at all. It is written under a name of its own beside the
// target, and the open handle is then renamed to the target: unlike a close, that reports whether the content was
// encrypted and stored, and until it succeeds the old content is unchanged. An upload that is given up is deleted through its
// handle, so that no part of it is ever stored; an encrypted one is not in the folder at all before it is placed.
#pragma once

#include <functional>

#include "core/Volume.h"

// Throws HostError when a file of this name cannot be stored because the name is too long: the disks below Wine count bytes of UTF-8, and
// Wine cuts what is longer.
void RequireShortName(const VolumePath& path, bool encrypted);

class Upload {
public:
    // Starts an upload to target, a path as listed, whose folder must exist. A conflict copy that is replaced gets the
    // ordinary name of its container. Throws HostError when the folder is missing, when target is a folder, when an item of
    // another name would be lost, and when target is stored encrypted but its new content would not be.
    Upload(const Volume& volume, const VolumePath& target);
    // The same when target was looked up before: existing is the file there, if any.
    Upload(const Volume& volume, const VolumePath& target, const std::optional<Entry>& existing);
    // Gives up an upload that was not placed.
    ~Upload();
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    void Write(const void* data, std::size_t size);
    bool IsToBeEncrypted() const { return m_encrypted; }
    // The target; after Place, the path that the content is listed under, which is another one for content that is itself a container or
    // that replaced a locked conflict copy.
    const VolumePath& Target() const { return m_target; }
    // The stored file, after Place.
    const Entry& Stored() const { return m_stored; }
    // Replaces the target by the content, with the given times (0: now), and checks that the volume shows it there. A lock that this
    // process has on the target is used. Throws HostError; the old content is then unchanged, unless the message says otherwise; or what
    // lastLook throws, which is called immediately before.
    void Place(
        const VirtFindData& times, const std::function<void()>& lastLook = [] {});
    // The same, if nothing is at the target. False: something is, even if another program made it at this moment; nothing was changed.
    bool PlaceIfFree();

private:
    bool IsEncrypted() const;
    void RequireFit(const std::optional<Entry>& existing) const;
    void Verify();

    const Volume& m_volume;
    VolumePath m_target, m_asidePath;
    std::optional<Entry> m_replacedConflict;
    FileHandle m_file;
    bool m_encrypted = false;
    Entry m_stored{m_target};
    std::uint64_t m_written = 0;
};
