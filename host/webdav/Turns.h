// Work that needs much memory or time is done by few requests at once; the others wait for their turn.
#pragma once

#include <atomic>
#include <optional>
#include <semaphore>

#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

inline std::counting_semaphore<limits::xmlAtOnce> g_xmlTurns(limits::xmlAtOnce);
inline std::counting_semaphore<limits::listingsAtOnce> g_listingTurns(limits::listingsAtOnce);
inline std::counting_semaphore<limits::treesAtOnce> g_treeTurns(limits::treesAtOnce);
inline std::atomic<std::size_t> g_waiting{0};

[[noreturn]] inline void ThrowBusy() { throw HttpError(503, "the server is busy", {}, {{"Retry-After", "10"}}); }

// While this object exists, the request waits for others. Only some may wait, because each has a connection. Throws HttpError 503.
class Waiting {
public:
    Waiting() {
        if (++g_waiting > limits::waitingAtOnce) {
            --g_waiting;
            ThrowBusy();
        }
    }
    ~Waiting() { --g_waiting; }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
};

// A turn, until the end of this object. Claims are taken before it, so that a request with a turn waits for nobody.
template <class Turns>
class Turn {
public:
    // Throws HttpError 503 when it takes longer than a client waits.
    explicit Turn(Turns& turns) : m_turns(turns) {
        if (turns.try_acquire())
            return;
        const Waiting waiting;
        if (!turns.try_acquire_for(limits::claimPatience))
            ThrowBusy();
    }
    ~Turn() { m_turns.release(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Turns& m_turns;
};

// For work on trees.
using TreeTurn = std::optional<Turn<decltype(g_treeTurns)>>;

}  // namespace webdav
