// The volume as a WebDAV site: takes each request through the checks that all share, to the function of its method, and
// turns what fails into an answer.
#pragma once

#include "webdav/Access.h"
#include "webdav/Methods.h"

namespace webdav {

class Site {
public:
    // notices: the lines that every page shows; asked for on any thread, at each page.
    Site(const Volume& volume, AccessRules rules, std::function<std::vector<std::string>()> notices)
        : m_state(volume), m_rules(std::move(rules)) {
        m_state.notices = std::move(notices);
    }

    // Any thread may call. Throws ConnectionLost only, also when an answer that has begun cannot be finished.
    void Answer(const Request& request, RequestBody& body, Response& response);
    void RemoveExpiredLocks() { m_state.locks.RemoveExpired(); }
    // Between two new connections.
    std::chrono::milliseconds Pause() { return m_guesses.Pause(); }

private:
    void Dispatch(const Request& request, RequestBody& body, Response& response);

    State m_state;
    AccessRules m_rules;
    Guesses m_guesses;
};

}  // namespace webdav
