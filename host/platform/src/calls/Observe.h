#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "objects/Object.h"
#include "parcel/Parcel.h"

#include "binder_host/Observer.h"

namespace binder {

/** True once anybody observes. */
bool isObserved();

/** The watches of one call; empty when nobody wants to see its end. */
using CallWatches = std::vector<std::unique_ptr<CallWatch>>;
CallWatches observe(bool served, AIBinder& object, transaction_code_t code, const AParcel& in);
/** Leaves the position of `reply`, which may be null, at its start. */
void tellEnd(const CallWatches& watches, binder_status_t status, const AParcel* reply);

/** Does the call, seen by the observers; `reply` is looked at when it has returned. */
template <typename Call, typename Reply>
binder_status_t observed(bool served, AIBinder& object, transaction_code_t code, const AParcel& in,
                         Reply reply, Call call) {
    if (!isObserved()) return call();
    const CallWatches watches = observe(served, object, code, in);
    const binder_status_t status = call();
    tellEnd(watches, status, status == STATUS_OK ? reply() : nullptr);
    return status;
}

}  // namespace binder
