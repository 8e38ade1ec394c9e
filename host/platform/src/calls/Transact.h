#pragma once

#include <memory>

#include <android/binder_ibinder.h>

#include "objects/Object.h"
#include "parcel/Parcel.h"

namespace binder {

/**
 * Has the object, here or in another process, serve the call; waits for the reply unless the flags
 * have FLAG_ONEWAY. Sets *out, which is empty for a one-way call, with STATUS_OK.
 */
binder_status_t transact(AIBinder& binder, transaction_code_t code, const AParcel& in,
                         binder_flags_t flags, std::unique_ptr<AParcel>* out);

}  // namespace binder
