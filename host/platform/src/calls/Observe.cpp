#include "calls/Observe.h"

#include <atomic>
#include <utility>

#include <unistd.h>

#include "calls/Proxy.h"

namespace binder {
namespace {

using Observers = std::vector<CallObserver>;

// Never freed: calls may be under way when the process ends.
std::atomic<const Observers*> gObservers{nullptr};

}  // namespace

void addCallObserver(CallObserver observer) {
    const Observers* const before = gObservers.load();
    auto* const after = before == nullptr ? new Observers : new Observers(*before);
    after->push_back(std::move(observer));
    gObservers.store(after);
}

bool isObserved() {
    return gObservers.load(std::memory_order_acquire) != nullptr;
}

CallWatches observe(bool served, AIBinder& object, transaction_code_t code, const AParcel& in) {
    CallWatches watches;
    const AIBinder_Class* const clazz = object.clazz();
    if (clazz == nullptr || !clazz->hasTokenHeader) return watches;
    const size_t position = in.position();
    const ObservedCall call{.served = served,
                            .object = &object,
                            .descriptor = clazz->descriptor.c_str(),
                            .code = code};
    for (const CallObserver& observer : *gObservers.load(std::memory_order_acquire)) {
        in.setPosition(0);
        if (in.checkInterfaceToken(clazz->token) != STATUS_OK) break;
        if (auto watch = observer(call, &in); watch != nullptr) watches.push_back(std::move(watch));
    }
    in.setPosition(position);
    return watches;
}

void tellEnd(const CallWatches& watches, binder_status_t status, const AParcel* reply) {
    for (const auto& watch : watches) {
        if (reply != nullptr) reply->setPosition(0);
        watch->ended(status, reply);
    }
    if (reply != nullptr) reply->setPosition(0);
}

int32_t liveObjects() {
    return AIBinder::live();
}

pid_t servingProcess(AIBinder* binder) {
    if (binder == nullptr) return 0;
    return binder->isRemote() ? proxyOf(*binder).route()->peer()->pid() : getpid();
}

}  // namespace binder
