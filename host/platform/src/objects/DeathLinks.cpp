#include "objects/DeathLinks.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/Worker.h"

namespace binder {

DeathLink::DeathLink(const Recipient& recipient, void* cookie)
    : cookie(cookie), onDied(recipient.onDied), onUnlinked(recipient.onUnlinked) {}

DeathLink::~DeathLink() {
    if (onUnlinked != nullptr) onUnlinked(cookie);
}

void Recipient::add(std::shared_ptr<DeathLink> link) {
    const std::lock_guard lock(mLock);
    mLinks.push_back(std::move(link));
}

void Recipient::remove(const DeathLink& link) {
    std::shared_ptr<DeathLink> last;  // ends without the lock
    const std::lock_guard lock(mLock);
    const auto found = std::find_if(mLinks.begin(), mLinks.end(),
                                    [&](const auto& held) { return held.get() == &link; });
    if (found == mLinks.end()) return;
    last = std::move(*found);
    last->isUnlinked = true;
    mLinks.erase(found);
}

void Recipient::clear() {
    Links ended;  // end without the lock
    const std::lock_guard lock(mLock);
    ended.swap(mLinks);
    for (const std::shared_ptr<DeathLink>& link : ended)
        link->isUnlinked = true;
}

binder_status_t DeathLinks::link(const std::shared_ptr<Recipient>& recipient, void* cookie) {
    const auto link = std::make_shared<DeathLink>(*recipient, cookie);  // ends without the lock
    const std::lock_guard lock(mLock);
    if (isDead()) return STATUS_DEAD_OBJECT;
    recipient->add(link);
    std::erase_if(mLinks, [](const Link& known) { return known.weak.expired(); });
    mLinks.push_back({.weak = link, .recipient = recipient, .cookie = cookie});
    return STATUS_OK;
}

binder_status_t DeathLinks::unlink(Recipient& recipient, void* cookie) {
    std::shared_ptr<DeathLink> link;
    {
        const std::lock_guard lock(mLock);
        const auto found = std::find_if(mLinks.rbegin(), mLinks.rend(), [&](const Link& known) {
            return known.recipient.lock().get() == &recipient && known.cookie == cookie &&
                   !known.weak.expired();
        });
        if (found == mLinks.rend()) return STATUS_NAME_NOT_FOUND;
        link = found->weak.lock();
        mLinks.erase(std::next(found).base());
    }
    if (link != nullptr) recipient.remove(*link);
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
    const std::lock_guard lock(mLock);
    mLinks.clear();
}

void DeathLinks::notify() {
    for (;;) {
        Link next;
        std::shared_ptr<DeathLink> link;
        {
            const std::lock_guard lock(mLock);
            if (mLinks.empty()) return;
            next = mLinks.front();
            link = next.weak.lock();
            if (link == nullptr || link->isUnlinked) {
                mLinks.erase(mLinks.begin());
                continue;
            }
        }
        link->onDied(link->cookie);
        // A recipient is notified once for a cookie, however often it was linked with it.
        const std::shared_ptr<Recipient> recipient = next.recipient.lock();
        std::vector<Link> ended;
        {
            const std::lock_guard lock(mLock);
            const auto isOther = [&](const Link& known) {
                return known.cookie != next.cookie || known.recipient.lock() != recipient;
            };
            const auto first = std::stable_partition(mLinks.begin(), mLinks.end(), isOther);
            ended.assign(std::make_move_iterator(first), std::make_move_iterator(mLinks.end()));
            mLinks.erase(first, mLinks.end());
        }
        for (const Link& it : ended) {
            const std::shared_ptr<DeathLink> last = it.weak.lock();
            if (last != nullptr && recipient != nullptr) recipient->remove(*last);
        }
    }
}

}  // namespace binder
