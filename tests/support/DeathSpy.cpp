#include "tests/support/DeathSpy.h"

#include <dlfcn.h>

#include <algorithm>

namespace vela::test {
namespace {

DeathSpy* gSpy = nullptr;

/** The platform's own function behind the one of this file. */
template <typename Function>
Function* platformFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

struct DeathSpyHooks {
    static void created(AIBinder_DeathRecipient* recipient,
                        AIBinder_DeathRecipient_onBinderDied onDied) {
        if (gSpy == nullptr) return;
        gSpy->mOnDied = onDied;
        gSpy->mRecipients.push_back(recipient);
    }
    static void deleted(AIBinder_DeathRecipient* recipient) {
        if (gSpy == nullptr) return;
        std::erase(gSpy->mRecipients, recipient);
        std::erase_if(gSpy->mLinks, [&](const auto& link) { return link.recipient == recipient; });
    }
    static void linked(const DeathLink& link) {
        if (gSpy != nullptr) gSpy->mLinks.push_back(link);
    }
    static void unlinked(const DeathLink& link) {
        if (gSpy == nullptr) return;
        const auto found = std::find(gSpy->mLinks.begin(), gSpy->mLinks.end(), link);
        if (found == gSpy->mLinks.end()) return;
        gSpy->mLinks.erase(found);
        ++gSpy->mUnlinked;
    }
};

DeathSpy::DeathSpy() {
    gSpy = this;
}

DeathSpy::~DeathSpy() {
    gSpy = nullptr;
}

}  // namespace vela::test

// The test program's own definitions of these functions come before the platform's library.

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    const auto next = vela::test::platformFunction<decltype(AIBinder_DeathRecipient_new)>(
            "AIBinder_DeathRecipient_new");
    AIBinder_DeathRecipient* recipient = next(onBinderDied);
    vela::test::DeathSpyHooks::created(recipient, onBinderDied);
    return recipient;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    vela::test::DeathSpyHooks::deleted(recipient);
    vela::test::platformFunction<decltype(AIBinder_DeathRecipient_delete)>(
            "AIBinder_DeathRecipient_delete")(recipient);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    vela::test::DeathSpyHooks::linked({binder, recipient, cookie});
    return vela::test::platformFunction<decltype(AIBinder_linkToDeath)>("AIBinder_linkToDeath")(
            binder, recipient, cookie);
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    vela::test::DeathSpyHooks::unlinked({binder, recipient, cookie});
    return vela::test::platformFunction<decltype(AIBinder_unlinkToDeath)>("AIBinder_unlinkToDeath")(
            binder, recipient, cookie);
}
