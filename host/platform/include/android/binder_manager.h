#pragma once

#include <stdbool.h>
#include <stdint.h>
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

/** Bits of the flags with which a service is published. */
enum AServiceManager_AddServiceFlag : uint32_t {
    /** Isolated processes may look the service up. */
    ADD_SERVICE_ALLOW_ISOLATED = 1 << 0,
    /** When a report of the whole system dumps the service. */
    ADD_SERVICE_DUMP_FLAG_PRIORITY_CRITICAL = 1 << 1,
    ADD_SERVICE_DUMP_FLAG_PRIORITY_HIGH = 1 << 2,
    ADD_SERVICE_DUMP_FLAG_PRIORITY_NORMAL = 1 << 3,
    ADD_SERVICE_DUMP_FLAG_PRIORITY_DEFAULT = 1 << 4,
};

/**
 * As AServiceManager_addService. Linux has neither isolated processes nor reports of the whole
 * system: the flags are accepted and change nothing.
 */
__attribute__((warn_unused_result)) binder_exception_t AServiceManager_addServiceWithFlags(
        AIBinder* binder, const char* instance, enum AServiceManager_AddServiceFlag flags);

/** These return a strong reference that the caller releases, or null. */

/** Answers at once. */
__attribute__((warn_unused_result)) AIBinder* AServiceManager_checkService(const char* instance);
/** Waits up to five seconds for the service. */
__attribute__((warn_unused_result,
               deprecated("checkService() does not wait, waitForService() is told"))) AIBinder*
AServiceManager_getService(const char* instance);
/** Waits until the service is there. */
__attribute__((warn_unused_result)) AIBinder* AServiceManager_waitForService(const char* instance);

/** True for a registered instance: on Linux no manifest declares services ahead of them. */
bool AServiceManager_isDeclared(const char* instance);
/**
 * Calls callback, before it returns, with each declared instance of the interface, the interface's
 * name and the slash left out.
 */
void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char* instance, void* context));

/** A request to be told when a service is registered. */
struct AServiceManager_NotificationRegistration;
typedef struct AServiceManager_NotificationRegistration AServiceManager_NotificationRegistration;

/** The name, the binder, which remains the platform's, and the cookie of the request. */
typedef void (*AServiceManager_onRegister)(const char* instance, AIBinder* registered,
                                           void* cookie);

/**
 * Calls onRegister on a thread of the platform for the service that the name has and for each that
 * it is given later. Null for a bad name or without a function.
 */
__attribute__((warn_unused_result)) AServiceManager_NotificationRegistration*
AServiceManager_registerForServiceNotifications(const char* instance,
                                                AServiceManager_onRegister onRegister,
                                                void* cookie);
/** Ends the notifications. Null is allowed. */
void AServiceManager_NotificationRegistration_delete(
        AServiceManager_NotificationRegistration* notification);

__END_DECLS
#pragma GCC visibility pop
