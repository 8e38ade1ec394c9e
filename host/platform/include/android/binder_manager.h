#pragma once

#include <stdbool.h>
#include <sys/cdefs.h>

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#pragma GCC visibility push(default)
__BEGIN_DECLS

/**
 * Publishes the binder under a name: 1 to 127 letters, digits and `_`, `-`, `.`, `/`. A name that
 * is taken is replaced. EX_NONE, or the exception with which it was refused.
 */
__attribute__((warn_unused_result)) binder_exception_t AServiceManager_addService(
        AIBinder* binder, const char* instance);

/** These return a strong reference that the caller releases, or null. */

/** Answers at once. */
__attribute__((warn_unused_result)) AIBinder* AServiceManager_checkService(const char* instance);
/** Waits up to five seconds for the service. */
__attribute__((warn_unused_result)) AIBinder* AServiceManager_getService(const char* instance);
/** Waits until the service is there. */
__attribute__((warn_unused_result)) AIBinder* AServiceManager_waitForService(const char* instance);

/** True for a registered instance: on Linux no manifest declares services ahead of them. */
bool AServiceManager_isDeclared(const char* instance);

__END_DECLS
#pragma GCC visibility pop
