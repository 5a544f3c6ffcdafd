// A request with its answer, and what all requests share.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/Text.h"
#include "webdav/Claims.h"
#include "webdav/Conditions.h"
#include "webdav/Http.h"
#include "webdav/Limits.h"
#include "webdav/LockTable.h"
#include "webdav/Paths.h"
#include "webdav/Properties.h"

namespace webdav {

// Tells the person who runs the server something once about each path. Any thread.
class ToldOnce {
public:
    bool Knows(const VolumePath& about) {
        const std::lock_guard guard(m_mutex);
        return m_paths.contains(about);
    }
    void Tell(const VolumePath& about, const std::string& text) {
        const std::lock_guard guard(m_mutex);
        if (m_paths.size() >= limits::toldPaths)
            m_paths.clear();
        if (m_paths.insert(about).second)
            PrintError("quelvol: " + text + "\n");
    }

private:
    std::mutex m_mutex;
    std::set<VolumePath, PathLess> m_paths;
};

// Shared by all requests. Every part may be used from any thread.
struct State {
    explicit State(const Volume& theVolume) : volume(theVolume), locks(theVolume) {}

    const Volume& volume;
    LockTable locks;
    DeadProperties properties;
    ChangeNumbers changes;
    Claims claims;
    ToldOnce told;                                      // of documents that were stored unencrypted, or their folder if it has no policy
    std::function<std::vector<std::string>()> notices;  // lines that every page shows; may be empty; set before the first request
};

// One request and its answer.
struct Exchange {
    State& state;
    const Request& request;
    RequestBody& body;
    Response& response;
    std::uint64_t changes;            // Claims::Changes when the request arrived
    Resource found;                   // what the request's path named then
    IfHeader ifHeader;                // empty: the field is missing
    std::vector<std::string> tokens;  // that the client submitted

    // The resource as it is now; looked up again only if other requests changed something meanwhile, or its time is a condition.
    Resource FindAgain(const Resource& known) const {
        const bool isCurrent = state.claims.Changes() == changes && !request.Field("If-Unmodified-Since");
        return state.locks.AsHeld(isCurrent ? known : Locate(state.volume, known.path));
    }
    Resource Find() const { return FindAgain(found); }
    std::string Tag(const Resource& resource) const { return EntityTag(state.volume, state.changes, resource); }
};

}  // namespace webdav
