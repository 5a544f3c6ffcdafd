// The volume as a WebDAV site: makes the checks that all requests share, calls the function of the method, and
// answers failures.
#pragma once

#include "webdav/Access.h"
#include "webdav/Exchange.h"

namespace webdav {

class Site {
public:
    // notices returns the lines that every page shows; it is called on any thread, for each page.
    Site(const Volume& volume, AccessRules rules, std::function<std::vector<std::string>()> notices)
        : m_state(volume), m_rules(std::move(rules)) {
        m_state.notices = std::move(notices);
    }

    // Any thread may call. Throws only ConnectionLost, also when an answer that has begun cannot be finished.
    void Answer(const Request& request, RequestBody& body, Response& response);
    void RemoveExpiredLocks() { m_state.locks.RemoveExpired(); }
    // The time to wait between two new connections.
    std::chrono::milliseconds Pause() { return m_guesses.Pause(); }

private:
    void Dispatch(const Request& request, RequestBody& body, Response& response);

    State m_state;
    AccessRules m_rules;
    Guesses m_guesses;
};

}  // namespace webdav
