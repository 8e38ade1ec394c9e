#include "calls/OnewayQueues.h"

#include <utility>

namespace binder {

OnewayCall::OnewayCall(std::shared_ptr<Peer> from, std::shared_ptr<Connection> over,
                       Incoming message)
    : from(std::move(from)),
      over(std::move(over)),
      cost(OnewayCost::of(message.header)),
      in(std::move(message.parcel)),
      code(message.header.code) {}

OnewayCall::~OnewayCall() {
    in.reset();
    if (from != nullptr) from->onewayAccount().served(cost, *over);
}

OnewayQueues& OnewayQueues::get() {
    static OnewayQueues* const instance = new OnewayQueues;  // outlives every thread
    return *instance;
}

bool OnewayQueues::add(const LocalObject& object, OnewayCall call) {
    const std::lock_guard lock(mLock);
    const auto [queue, isNew] = mCalls.try_emplace(&object);
    queue->second.push_back(std::move(call));
    return isNew;
}

std::unique_ptr<OnewayCall> OnewayQueues::next(const LocalObject& object) {
    const std::lock_guard lock(mLock);
    const auto queue = mCalls.find(&object);
    if (queue->second.empty()) {
        mCalls.erase(queue);
        return nullptr;
    }
    auto call = std::make_unique<OnewayCall>(std::move(queue->second.front()));
    queue->second.pop_front();
    return call;
}

}  // namespace binder
