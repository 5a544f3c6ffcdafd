// Direct calls of the companion library that the volume has loaded, for what a status cannot say: why a container could not be read
// or written, and what is wrong with one. Another library may lack these functions. Any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <windows.h>

#include "quelcrypt/QuelcryptLib.h"

// In the order of CompanionVerdict.
enum class ContainerState { Whole, OtherKey, WrongKey, Damaged, NoContainer, Unreadable, Stopped, NotProven, Unknown };

struct Verdict {
    ContainerState state = ContainerState::Unknown;
    std::string reason;  // a sentence without its full stop; may be empty
};

// Why the last container could not be read or written on this thread; empty when it could, or the reason is not known.
std::string LastContainerProblem();

// Reads a container to its end. step receives the bytes read since its last call, and returns whether to continue. Without step only
// the container's records are read, which needs no password, and distinguishes damaged containers from other files.
Verdict ExamineContainer(const std::wstring& path, const std::function<bool(std::uint64_t)>& step = nullptr);

// Calls take with each part of a container's content. Throws HostError with what is wrong.
void ReadContainer(const std::wstring& path, const std::function<void(const char*, std::size_t)>& take);

// The times of the document in the container. False: they cannot be read.
bool ContainerTimes(const std::wstring& path, SYSTEMTIME& lastWrite, SYSTEMTIME& lastAccess, SYSTEMTIME& creation);

// A new container, a side file until Finish, which replaces nothing (if the library has Companion_NewFileWriter). Each function throws
// HostError, and leaves what was there as it was.
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

// Does the folder's password open what is stored in it?
Verdict CheckFolderPassword(const std::wstring& folder, bool mayAsk);
// From now on nobody is asked for a password.
void ForbidPasswordQuestions();

// Does the folder have a policy, and is this name excluded from encryption? Nothing: unknown.
std::optional<bool> FolderHasPolicy(const std::wstring& folder);
bool IsNameExcluded(const std::wstring& name);
