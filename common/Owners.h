// Owner types for what the platform hands out: each closes what it holds exactly once, keeps the caller's last error while doing so,
// and is empty after it was moved from. One owner must not be used by two threads at once.
#pragma once

#include <cstdint>
#include <utility>

#include <windows.h>

// Restores the calling thread's last error at its end, so that logging and closing never disturb a caller's check.
class LastErrorKeeper {
public:
    LastErrorKeeper() : m_error(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(m_error); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD m_error;
};

// Owns one resource; Policy says its type, its empty value and how it is closed.
template <class Policy>
class Owner {
public:
    using Resource = typename Policy::Resource;

    Owner() = default;
    explicit Owner(Resource resource) : m_resource(resource) {}
    ~Owner() { Reset(); }
    Owner(Owner&& other) noexcept : m_resource(other.Detach()) {}
    Owner& operator=(Owner&& other) noexcept {
        Reset(other.Detach());
        return *this;
    }

    Resource Get() const { return m_resource; }
    explicit operator bool() const { return m_resource != Policy::Empty(); }
    Resource operator->() const { return m_resource; }
    Resource Detach() { return std::exchange(m_resource, Policy::Empty()); }
    void Reset(Resource resource = Policy::Empty()) {
        const Resource old = std::exchange(m_resource, resource);
        if (old != Policy::Empty() && old != resource) {
            const LastErrorKeeper keeper;
            Policy::Close(old);
        }
    }
    // For functions that store a resource through a pointer; what was held is closed first.
    Resource* GetAddr() {
        Reset();
        return &m_resource;
    }

private:
    Resource m_resource = Policy::Empty();
};

struct HandlePolicy {
    using Resource = HANDLE;
    static HANDLE Empty() { return nullptr; }
    static void Close(HANDLE handle) { CloseHandle(handle); }
};
using UniqueHandle = Owner<HandlePolicy>;
// Of what the platform's CreateFileW returns; empty when that failed.
inline UniqueHandle OwnHandle(HANDLE handle) { return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle); }

// The share mode that lets others read, write and delete an open file.
inline constexpr std::uint32_t kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct FindHandlePolicy {
    using Resource = HANDLE;
    static HANDLE Empty() { return INVALID_HANDLE_VALUE; }
    static void Close(HANDLE handle) { ::FindClose(handle); }
};
using UniqueFindHandle = Owner<FindHandlePolicy>;

// Runs an action at the end of a scope, whatever way it is left. What the action throws is lost.
template <class Action>
class OnExit {
public:
    explicit OnExit(Action action) : m_action(std::move(action)) {}
    ~OnExit() {
        try {
            m_action();
        } catch (...) {  // a destructor must not throw
        }
    }
    OnExit(const OnExit&) = delete;
    OnExit& operator=(const OnExit&) = delete;

private:
    Action m_action;
};
