#include "tests/support/DeathSpy.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <utility>

#include <gtest/gtest.h>

namespace vela::test {
namespace {

struct Recipient {
    AIBinder_DeathRecipient_onBinderDied onDied;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
};

struct Link {
    AIBinder* binder;
    AIBinder_DeathRecipient* recipient;
    void* cookie;
    Recipient functions;
    bool isLinked = true;
    bool isNotifying = false;
};

struct Platform {
    std::mutex lock;
    bool isSpied = false;
    size_t recipients = 0;
    size_t unlinked = 0;
    std::list<Link> links;
    std::function<void()> onNextUnlink;
};
Platform gPlatform;

Recipient* functionsOf(AIBinder_DeathRecipient* recipient) {
    return reinterpret_cast<Recipient*>(recipient);
}

void endCookie(const Link& link) {
    if (link.functions.onUnlinked != nullptr) link.functions.onUnlinked(link.cookie);
}

/** Ends the cookies that nothing can use any more. */
void endCookies(std::unique_lock<std::mutex> lock) {
    std::list<Link> ended;
    gPlatform.links.remove_if([&ended](const Link& link) {
        if (link.isLinked || link.isNotifying) return false;
        ended.push_back(link);
        return true;
    });
    lock.unlock();
    for (const Link& link : ended)
        endCookie(link);
}

}  // namespace

DeathSpy::DeathSpy() {
    const std::lock_guard lock(gPlatform.lock);
    gPlatform.isSpied = true;
    gPlatform.unlinked = 0;
}

DeathSpy::~DeathSpy() {
    std::unique_lock lock(gPlatform.lock);
    gPlatform.isSpied = false;
    for (Link& link : gPlatform.links)
        link.isLinked = false;
    endCookies(std::move(lock));
}

std::vector<AIBinder*> DeathSpy::linked() const {
    const std::lock_guard lock(gPlatform.lock);
    std::vector<AIBinder*> linked;
    for (const Link& link : gPlatform.links) {
        if (link.isLinked && link.recipient != nullptr) linked.push_back(link.binder);
    }
    return linked;
}

size_t DeathSpy::unlinked() const {
    const std::lock_guard lock(gPlatform.lock);
    return gPlatform.unlinked;
}

size_t DeathSpy::recipients() const {
    const std::lock_guard lock(gPlatform.lock);
    return gPlatform.recipients;
}

DeathSpy::Notification DeathSpy::begin() {
    const std::lock_guard lock(gPlatform.lock);
    for (Link& link : gPlatform.links) {
        if (!link.isLinked || link.isNotifying || link.recipient == nullptr) continue;
        link.isNotifying = true;
        return [&link] {
            link.functions.onDied(link.cookie);
            std::unique_lock lock(gPlatform.lock);
            link.isLinked = link.isNotifying = false;
            endCookies(std::move(lock));
        };
    }
    return nullptr;
}

void DeathSpy::onNextUnlink(std::function<void()> action) {
    const std::lock_guard lock(gPlatform.lock);
    gPlatform.onNextUnlink = std::move(action);
}

void DeathSpy::dieWithoutCookie() {
    gPlatform.links.back().functions.onDied(nullptr);
}

}  // namespace vela::test

// The test program's own definitions of these functions come before the platform's library.

using vela::test::gPlatform;

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    const std::lock_guard lock(gPlatform.lock);
    ++gPlatform.recipients;
    return reinterpret_cast<AIBinder_DeathRecipient*>(new vela::test::Recipient{onBinderDied});
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    vela::test::functionsOf(recipient)->onUnlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    const std::lock_guard lock(gPlatform.lock);
    --gPlatform.recipients;
    // Its links notify no more, and end when their proxies go: with the spy.
    for (auto& link : gPlatform.links) {
        if (link.recipient == recipient) link.recipient = nullptr;
    }
    delete vela::test::functionsOf(recipient);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    const vela::test::Link link{binder, recipient, cookie, *vela::test::functionsOf(recipient)};
    {
        const std::lock_guard lock(gPlatform.lock);
        if (gPlatform.isSpied) {
            gPlatform.links.push_back(link);
            return STATUS_OK;
        }
    }
    vela::test::endCookie(link);
    return STATUS_INVALID_OPERATION;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    EXPECT_NE(binder, nullptr) << "a device's platform complains of it";
    std::unique_lock lock(gPlatform.lock);
    if (const auto action = std::exchange(gPlatform.onNextUnlink, nullptr)) {
        lock.unlock();
        action();
        lock.lock();
    }
    const auto found = std::ranges::find_if(gPlatform.links, [=](const auto& link) {
        return link.isLinked && link.binder == binder && link.recipient == recipient &&
               link.cookie == cookie;
    });
    if (found == gPlatform.links.end()) return STATUS_NAME_NOT_FOUND;
    found->isLinked = false;
    ++gPlatform.unlinked;
    vela::test::endCookies(std::move(lock));
    return STATUS_OK;
}
