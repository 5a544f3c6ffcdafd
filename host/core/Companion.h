// The companion library that the volume has loaded, asked directly for what no status can say: why a container could not be read
// or written, and what is wrong with one. A library without these functions leaves it at the status. Any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <windows.h>

#include "quelcrypt/QuelcryptLib.h"

// In the order of the companion's own verdicts.
enum class ContainerState { Whole, OtherKey, WrongKey, Damaged, NoContainer, Unreadable, Stopped, NotProven, Unknown };

struct Verdict {
    ContainerState state = ContainerState::Unknown;
    std::string reason;  // a sentence without its full stop; may be empty
};

// Why the last container could not be read or written on this thread; empty when it could, or that is not known.
std::string LastContainerProblem();

// Reads a container to its end. step gets the bytes read since its last call, and says whether to go on. Without step only the
// container's records are looked at: that needs no password, and tells damage and other files apart.
Verdict ExamineContainer(const std::wstring& path, const std::function<bool(std::uint64_t)>& step = nullptr);

// Hands a container's content to take, part by part. Throws HostError with what was found.
void ReadContainer(const std::wstring& path, const std::function<void(const char*, std::size_t)>& take);

// The times of the document that the container holds. False: they cannot be told.
bool ContainerTimes(const std::wstring& path, SYSTEMTIME& lastWrite, SYSTEMTIME& lastAccess, SYSTEMTIME& creation);

// A new container, written aside until Finish. Each throws HostError, and what stood there before then stands.
class NewContainer {
public:
    // For the document of this name, with the attributes and times of the file on disk.
    NewContainer(const std::wstring& path, const std::wstring& name, const std::wstring& source, const BY_HANDLE_FILE_INFORMATION& of);
    ~NewContainer();
    NewContainer(const NewContainer&) = delete;
    NewContainer& operator=(const NewContainer&) = delete;

    void Write(const char* data, std::size_t size);
    void Finish();

private:
    void Do(const std::function<bool()>& step);

    std::string m_shown;
    IFileWriter* m_writer = nullptr;
};

// Does the password of the folder open what is in it?
Verdict CheckFolderPassword(const std::wstring& folder, bool mayAsk);
// From now on nobody is asked for a password.
void ForbidPasswordQuestions();

// May content in a folder be stored encrypted, and is this name left out? Nothing: it cannot be told.
std::optional<bool> FolderHasPolicy(const std::wstring& folder);
bool IsNameExcluded(const std::wstring& name);
