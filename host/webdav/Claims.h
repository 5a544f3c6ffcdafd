// Who is using what at the moment. Requests that would disturb each other wait for each other: a reader sees a file as it
// was before or after a write, never between, and a tree is not changed while it is moved.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

#include "webdav/Paths.h"

namespace webdav {

enum class Use { Read, Change, ChangeTree };  // the last one covers all that is below the path

struct ClaimedPath {
    VolumePath path;
    Use use;
};

class Claims {
private:
    friend class Claim;
    bool IsDisturbed(const std::vector<ClaimedPath>& paths) const;

    std::mutex m_mutex;
    std::condition_variable m_released;
    std::list<const std::vector<ClaimedPath>*> m_held;
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

private:
    Claims& m_claims;
    std::vector<ClaimedPath> m_paths;
    bool m_held = true;
};

}  // namespace webdav
