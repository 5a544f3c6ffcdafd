#include "webdav/Claims.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "webdav/Http.h"
#include "webdav/Limits.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

bool Covers(const ClaimedPath& tree, const VolumePath& path) { return tree.use == Use::ChangeTree && IsAtOrInside(path, tree.path); }

bool Disturb(const ClaimedPath& left, const ClaimedPath& right) {
    if (left.use <= Use::Read && right.use <= Use::Read)
        return false;
    if (left.use == Use::Open || right.use == Use::Open)
        return Covers(left, right.path) || Covers(right, left.path);
    return left.path.Equals(right.path) || Covers(left, right.path) || Covers(right, left.path);
}

}  // namespace

bool Claims::IsDisturbed(const std::vector<ClaimedPath>& paths) {
    bool isDisturbed = false;
    for (Claim* const held : m_held)
        for (const ClaimedPath& mine : paths)
            if (std::any_of(held->m_paths.begin(), held->m_paths.end(), [&](const ClaimedPath& other) { return Disturb(mine, other); }))
                isDisturbed = held->m_isInTheWay = true;
    return isDisturbed;
}

Claim::Claim(Claims& claims, std::vector<ClaimedPath> paths) : m_claims(claims), m_paths(std::move(paths)) {
    std::unique_lock guard(m_claims.m_mutex);
    if (m_claims.IsDisturbed(m_paths)) {
        const Waiting waiting;
        if (!m_claims.m_released.wait_for(guard, limits::claimPatience, [this] { return !m_claims.IsDisturbed(m_paths); }))
            throw HttpError(503, "the file is being used by another request", {}, {{"Retry-After", "10"}});
    }
    m_claims.m_held.push_back(this);
}

void Claim::Release() {
    if (!std::exchange(m_held, false))
        return;
    const std::lock_guard guard(m_claims.m_mutex);
    if (std::any_of(m_paths.begin(), m_paths.end(), [](const ClaimedPath& claimed) { return claimed.use > Use::Read; }))
        ++m_claims.m_changes;
    m_claims.m_held.remove(this);
    m_claims.m_released.notify_all();
}

void Claim::OnlyOpen() {
    const std::lock_guard guard(m_claims.m_mutex);
    for (ClaimedPath& claimed : m_paths)
        claimed.use = Use::Open;
    m_isInTheWay = false;  // a waiting claim that is still disturbed says so again
    m_claims.m_released.notify_all();
}

}  // namespace webdav
