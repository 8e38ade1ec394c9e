#include "objects/DeathLinks.h"

#include <algorithm>
#include <utility>

#include "base/Worker.h"

namespace binder {

DeathLinks::Link::Link(std::shared_ptr<Recipient> recipient, void* cookie)
    : recipient(std::move(recipient)), cookie(cookie), onUnlinked(this->recipient->onUnlinked) {}

DeathLinks::Link::~Link() {
    if (onUnlinked != nullptr) onUnlinked(cookie);
}

binder_status_t DeathLinks::link(std::shared_ptr<Recipient> recipient, void* cookie) {
    auto link = std::make_shared<Link>(std::move(recipient), cookie);  // ends without the lock
    const std::lock_guard lock(mLock);
    if (isDead()) return STATUS_DEAD_OBJECT;
    mLinks.push_back(std::move(link));
    return STATUS_OK;
}

binder_status_t DeathLinks::unlink(const Recipient& recipient, void* cookie) {
    std::shared_ptr<Link> ended;  // ends without the lock
    const std::lock_guard lock(mLock);
    const auto found = std::find_if(mLinks.rbegin(), mLinks.rend(), [&](const auto& link) {
        return link->recipient.get() == &recipient && link->cookie == cookie;
    });
    if (found == mLinks.rend()) return STATUS_NAME_NOT_FOUND;
    ended = std::move(*found);
    mLinks.erase(std::next(found).base());
    return isDead() ? STATUS_DEAD_OBJECT : STATUS_OK;
}

void DeathLinks::objectDied() {
    const std::lock_guard lock(mLock);
    if (mIsDead.exchange(true) || mLinks.empty()) return;
    Worker::get().post([weak = weak_from_this()] {
        if (const std::shared_ptr<DeathLinks> links = weak.lock()) links->notify();
    });
}

void DeathLinks::end() {
    std::vector<std::shared_ptr<Link>> ended;  // end without the lock
    const std::lock_guard lock(mLock);
    ended.swap(mLinks);
}

void DeathLinks::notify() {
    for (;;) {
        std::shared_ptr<Link> next;
        {
            const std::lock_guard lock(mLock);
            if (mLinks.empty()) return;
            next = mLinks.front();
        }
        if (!next->recipient->isDeleted) next->recipient->onDied(next->cookie);
        // A recipient is notified once for a cookie, however often it was linked with it.
        std::vector<std::shared_ptr<Link>> ended;
        const std::lock_guard lock(mLock);
        const auto isOther = [&](const auto& link) {
            return link->recipient != next->recipient || link->cookie != next->cookie;
        };
        const auto first = std::stable_partition(mLinks.begin(), mLinks.end(), isOther);
        ended.assign(std::make_move_iterator(first), std::make_move_iterator(mLinks.end()));
        mLinks.erase(first, mLinks.end());
    }
}

}  // namespace binder
