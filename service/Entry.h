#pragma once

#include <cstdint>
#include <memory>

#include "service/VelaDefault.h"

namespace aidl::vendor::lumenforge::hardware::display {

/** The product's only own reference to the main service; released at process exit. */
extern std::shared_ptr<VelaDefault> gDefaultInstance;

}  // namespace aidl::vendor::lumenforge::hardware::display

/**
 * Makes the main service and publishes it as "<descriptor of IVela>/default". Returns 0, or 1 if
 * it could not be published; it lives on all the same. The caller runs the thread pool. Hosts call
 * once: a second call replaces the service, and calls must not overlap.
 */
extern "C" [[gnu::visibility("default")]] int32_t AIDL_REGISTER_IVela();
