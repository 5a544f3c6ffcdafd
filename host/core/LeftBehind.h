// What programs that used the volume left in the temp folder. The volume keeps each decrypted copy in a folder of its own,
// "HalvaneCloud\hvc<digits>.tmp" below the temp folder, or below that of a run of quelvol. Beside a copy that may hold an edit
// lies a tracking file; a copy without one is what its container holds, or held.
//
// Nothing of a running program is touched: quelvol marks its own temp folder, for other programs their loaded modules
// are looked at, and before anything is deleted it is opened so that nobody else can have it open. No link
// is followed.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/TrackingText.h"
#include "quelcrypt/IVirtualVolume.h"

// A copy with a tracking file.
struct LeftEdit {
    std::string id;                    // eight hexadecimal digits, the same at every look
    std::filesystem::path file;        // a real path, see OnDisk.h
    FileState state;                   // of file, now; all 0 when it is gone or cannot be opened
    bool isGone = false;               // nothing is listed in its place
    std::optional<Tracking> tracking;  // nothing: the tracking file cannot be read
    std::filesystem::path container;   // on disk, or where it was; empty when that is not known for certain

    // Is file not an edit but a container, built to be copied over one that was locked?
    bool IsContainer() const;
    // Was nothing written since the copy was made? Told by time and size; only comparing the content proves it.
    bool LooksUntouched() const { return tracking && tracking->copyState == state; }
    // Of an upload that was broken off (see VolumePath::Aside): the name it was for. Empty for an ordinary edit.
    std::wstring UploadedName() const;

    enum class Since { Same, Changed, Gone, New, Unknown };
    // What became of the container since the copy was made. New: there was none, and there is none.
    Since ContainerSince() const;
};

class LeftBehind {
public:
    // Looks below the user's temp folder and where runs have theirs. own is this run's temp folder, which does not count; it may be empty.
    // What belongs to programs that ended is claimed as long as this object lives: no run of quelvol cleans it up meanwhile.
    explicit LeftBehind(const std::filesystem::path& own);
    ~LeftBehind();
    LeftBehind(const LeftBehind&) = delete;
    LeftBehind& operator=(const LeftBehind&) = delete;

    // The oldest first. volume tells which paths of other machines are its own; without it none is asked for.
    std::vector<LeftEdit> Edits(IVirtualVolume* volume) const;
    // Deletes the copies without a tracking file. Returns how many; kept counts those that could not be.
    std::size_t DeleteCopies(std::size_t& kept) const;
    // A line for each place that a running program uses, and which is therefore left alone.
    const std::vector<std::string>& InUse() const { return m_inUse; }

private:
    void Claim(const std::filesystem::path& runFolder);
    void AddCopyFolders(const std::filesystem::path& base);

    std::vector<std::filesystem::path> m_copyFolders;
    std::vector<void*> m_marks;
    std::vector<std::string> m_inUse;
};

// Deletes the copy, its tracking file and their folder. Throws HostError when the copy is open elsewhere or was changed
// since edit was made; nothing is deleted then.
void DeleteEdit(const LeftEdit& edit);
