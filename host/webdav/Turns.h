// What takes much memory is done by few requests at once; the others wait for their turn.
#pragma once

#include <semaphore>

#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

inline std::counting_semaphore<limits::xmlAtOnce> g_xmlTurns(limits::xmlAtOnce);
inline std::counting_semaphore<limits::listingsAtOnce> g_listingTurns(limits::listingsAtOnce);

// A turn, as long as the object lives.
template <class Turns>
class Turn {
public:
    // Throws HttpError 503 when it takes longer than a client waits.
    explicit Turn(Turns& turns) : m_turns(turns) {
        if (!turns.try_acquire_for(limits::claimPatience))
            throw HttpError(503, "the server is busy", {}, {{"Retry-After", "10"}});
    }
    ~Turn() { m_turns.release(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Turns& m_turns;
};

}  // namespace webdav
