#pragma once

#include <optional>
#include <string>
#include <vector>

/**
 * What a PC needs beyond the platform's own interface, since no init process starts a service
 * manager there: any process can host it.
 */
namespace binder {

enum class ServiceManagerHost {
    kThisProcess,
    kAnotherProcess,
    kNone,  // could not be started; the reason is logged
};

/**
 * Makes this process host the service manager unless one is running; tells who hosts it. The host's
 * thread pool has to run for others to be answered. It is hosted until the process ends, and its
 * names end with it. Any thread.
 */
[[gnu::visibility("default")]] ServiceManagerHost startServiceManager();

/** The registered names in order; nothing when no service manager answers. Any thread. */
[[gnu::visibility("default")]] std::optional<std::vector<std::string>> listServices();

}  // namespace binder
