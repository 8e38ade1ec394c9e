#pragma once

#include <memory>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "bench/BenchChip.h"

namespace bench {

using ::aidl::vendor::lumenforge::hardware::display::IVela;

/**
 * Publishes the product's main service, with a chip that takes no time, under the name, for good.
 */
void publish(const char* name);

/** Makes this process the one that has the service manager and a service of that name. */
void startOwnService(const char* name);

/** The service of that name, as a client has it. */
std::shared_ptr<IVela> service(const char* name);

}  // namespace bench
