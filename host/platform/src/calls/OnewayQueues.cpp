#include "calls/OnewayQueues.h"

#include <utility>

#include "calls/Serve.h"

namespace binder {
namespace {

// Served calls are reported when they come to so much.
constexpr uint32_t kReportBytes = 16 * 1024;
// Of one object, until others have their turn.
constexpr int kCallsPerTurn = 64;

}  // namespace

void OnewayReport::served(const OnewayCost& cost) {
    OnewayCost report;
    {
        const std::lock_guard lock(mLock);
        mWaiting.remove(cost);
        mUnreported.bytes += cost.bytes;
        mUnreported.descriptors += cost.descriptors;
        if (mUnreported.bytes < kReportBytes && mUnreported.descriptors == 0) return;
        report = std::exchange(mUnreported, {});
    }
    Outgoing message;
    message.header.kind = MessageKind::kServed;
    message.header.count = report.bytes;
    message.header.object = report.descriptors;
    // A sender that does not read what it is told cannot send any more.
    if (mConnection->send(message, kReportBytes) != Sent::kDone) mConnection->shutdown();
}

OnewayCall::OnewayCall(std::shared_ptr<OnewayReport> report,
                       const std::shared_ptr<Account>& account, uid_t uid, const Header& header)
    : report(std::move(report)),
      cost(OnewayCost::of(header)),
      bytes(account, Resource::kBytes, cost.bytes),
      descriptors(account, Resource::kDescriptors, cost.descriptors),
      uid(uid),
      code(header.code) {}

OnewayCall::~OnewayCall() {
    in.reset();
    if (report != nullptr) report->served(cost);
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

bool serveOneways(LocalObject& object) {
    for (int i = 0; i < kCallsPerTurn; ++i) {
        const std::unique_ptr<OnewayCall> call = OnewayQueues::get().next(object);
        if (call == nullptr) return false;
        const ServedCall served(nullptr, {}, 0, call->uid);
        AParcel ignored;
        serveOther(object, call->code, *call->in, &ignored);
    }
    return true;
}

}  // namespace binder
