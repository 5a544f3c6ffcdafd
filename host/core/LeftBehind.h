// What programs that used the volume left in the temp folder. The volume keeps each decrypted copy in a folder of its own,
// "HalvaneCloud\hvc<digits>.tmp" below the temp folder, or below that of a run of quelvol. A copy that may hold an edit
// has a tracking file beside it; a copy without one equals its container, or did.
//
// What a running program uses is not touched: quelvol marks its own temp folder, other programs are recognised by their loaded
// modules, and a file is deleted only when it can be opened so that nobody else has it open. No link is followed.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "common/TrackingText.h"
#include "core/OnDisk.h"
#include "quelcrypt/IVirtualVolume.h"

// A copy with a tracking file.
struct LeftEdit {
    std::string id;                          // eight hexadecimal digits, always the same for one file
    std::filesystem::path file;              // a real path, see OnDisk.h
    FileStamp state;                         // of file, now; all 0 when it is missing or cannot be opened
    bool isGone = false;                     // file is missing
    std::optional<TrackingRecord> tracking;  // nothing: the tracking file cannot be read
    std::filesystem::path container;         // its path on disk, even if it is missing; empty when it is not certain

    std::uint64_t Size() const { return static_cast<std::uint64_t>(state.size); }
    std::uint64_t WriteTime() const { return static_cast<std::uint64_t>(state.writeTime); }  // FILETIME

    // Is file not an edit but a container, built to be copied over one that was locked?
    bool IsContainer() const;
    // Do time and size say that nothing was written since the copy was made? Only a comparison of the content proves it.
    bool LooksUntouched() const { return tracking && tracking->temp == state; }
    // The target's name, if this is an upload that was broken off (see VolumePath::Aside). Empty for an ordinary edit.
    std::wstring UploadedName() const;

    enum class Since { Same, Changed, Gone, New, Unknown };
    // What happened to the container since the copy was made. New: there was none, and there is none.
    Since ContainerSince() const;
};

class LeftBehind {
public:
    // Searches the user's temp folder and the temp folders of runs, except own, which is this run's and may be empty.
    // Until the end of this object no other run of quelvol cleans up what ended programs left.
    explicit LeftBehind(const std::filesystem::path& own);
    LeftBehind(const LeftBehind&) = delete;
    LeftBehind& operator=(const LeftBehind&) = delete;

    // The oldest first. Containers on other machines are looked up only if they are in a mount folder of volume; none if it is null.
    std::vector<LeftEdit> Edits(IVirtualVolume* volume) const;
    // Deletes the copies without a tracking file. Returns how many; kept counts those that could not be deleted.
    std::size_t DeleteCopies(std::size_t& kept) const;
    // A line for each folder that a running program uses, and that was not searched for this reason.
    const std::vector<std::string>& InUse() const { return m_inUse; }

private:
    void Claim(const std::filesystem::path& runFolder);
    void AddCopyFolders(const std::filesystem::path& base);

    std::vector<std::filesystem::path> m_copyFolders;
    std::vector<UniqueHandle> m_marks;
    std::vector<std::string> m_inUse;
};

// Deletes the copy, its tracking file and their folder. Throws HostError when the copy is open elsewhere or was changed
// since edit was made; nothing is deleted then.
void DeleteEdit(const LeftEdit& edit);
