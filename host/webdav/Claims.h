// What requests are using at the moment. Requests that would disturb each other wait for each other: a reader sees a file as it
// was before or after a write, never between, and a tree is not changed while it is moved.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "webdav/Paths.h"

namespace webdav {

// Open: the file has been read, or its own copy was made, and is still open; only changing a tree that it lies in disturbs that.
// ChangeTree also covers everything below the path.
enum class Use { Open, Read, Change, ChangeTree };

struct ClaimedPath {
    VolumePath path;
    Use use;
};

class Claim;

class Claims {
public:
    // How many claims that may change something have ended. While this number is the same, only another program can have changed
    // what was looked up.
    std::uint64_t Changes() const { return m_changes; }

private:
    friend class Claim;
    // Also tells the disturbing claims that somebody waits for them.
    bool IsDisturbed(const std::vector<ClaimedPath>& paths);

    std::atomic<std::uint64_t> m_changes{0};
    std::mutex m_mutex;
    std::condition_variable m_released;
    std::list<Claim*> m_held;
};

// A claim on some paths, held as long as the object lives or until it is released.
class Claim {
public:
    // Waits until nobody has a claim that disturbs this one; all paths are taken at once. Throws HttpError 503 when that
    // takes longer than a client waits.
    Claim(Claims& claims, std::vector<ClaimedPath> paths);
    ~Claim() { Release(); }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;
    void Release();
    // What is claimed to be read is from now on only open.
    void OnlyOpen();
    // Somebody waits for this claim to end.
    bool IsInTheWay() const { return m_isInTheWay; }

private:
    friend class Claims;
    Claims& m_claims;
    std::atomic<bool> m_isInTheWay{false};
    std::vector<ClaimedPath> m_paths;
    bool m_held = true;
};

}  // namespace webdav
