#pragma once

#include <memory>
#include <optional>

#include <android/binder_ibinder.h>

#include "objects/Object.h"
#include "parcel/Parcel.h"
#include "transport/Receiver.h"

namespace binder {

/**
 * Has the object, here or in another process, serve the call; waits for the reply, until the
 * deadline, unless the flags have FLAG_ONEWAY. Sets *out, which is empty for a one-way call, with
 * STATUS_OK. STATUS_TIMED_OUT past the deadline.
 */
binder_status_t transact(AIBinder& binder, transaction_code_t code, const AParcel& in,
                         binder_flags_t flags, std::unique_ptr<AParcel>* out,
                         const std::optional<Wait::Clock::time_point>& deadline = std::nullopt);

}  // namespace binder
