#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

#include <android/binder_parcel.h>
#include <android/binder_status.h>

/** Describes one interface to the run time. Lives until the process ends. */
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;

/** An object that can be called, in this process or another, reference-counted. */
struct AIBinder;
typedef struct AIBinder AIBinder;

/** A reference that does not keep its object alive. */
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;

/** A function to call when the process of a linked binder dies. */
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

#pragma GCC visibility push(default)
__BEGIN_DECLS

typedef uint32_t binder_flags_t;
enum {
    /** The caller does not wait: no reply, and errors of the method are lost. */
    FLAG_ONEWAY = 0x01,
};

typedef uint32_t transaction_code_t;
enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

// --- classes ---

/** Given the argument of AIBinder_new, returns the user data of the new object. */
typedef void* (*AIBinder_Class_onCreate)(void* args);
/** Called with the user data when the last reference to the object goes. */
typedef void (*AIBinder_Class_onDestroy)(void* userData);
/** Serves one call. Any status but STATUS_OK is handed to the caller and drops the reply. */
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);
/** Writes a text for people to fd, which it does not own. */
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

/** All functions are required; the descriptor is copied. Null when an argument is null. */
__attribute__((warn_unused_result)) AIBinder_Class* AIBinder_Class_define(
        const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
        AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact);
/** Without it a dump writes nothing. To be called before the first object is made. */
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);
/** Calls of the class neither write nor check the interface's name. Before the first object. */
void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz);
/** Lives as long as the class. */
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// --- objects ---

/** A local object with one strong reference, the caller's. */
__attribute__((warn_unused_result)) AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args);
/** False for null. */
bool AIBinder_isRemote(const AIBinder* binder);
/** True for a local object, and for a remote one unless its death is known; false for null. */
bool AIBinder_isAlive(const AIBinder* binder);
/** STATUS_OK when the object answers. */
binder_status_t AIBinder_ping(AIBinder* binder);
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

/**
 * Makes the remote object's use conform to clazz, or tests that it does; the first time its process
 * is asked for the descriptor, and waited for. False for null, for another descriptor, when the
 * process is dead by then, and for a local object of another class of the same descriptor.
 */
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
/** Null when no class is associated, and for null. */
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
/** What onCreate returned; null for a remote object, and for null. */
void* AIBinder_getUserData(AIBinder* binder);

/** Null is allowed. */
void AIBinder_incStrong(AIBinder* binder);
/** Null is allowed. The last reference's end destroys the object. */
void AIBinder_decStrong(AIBinder* binder);
/** Strong references of this process; for tests only. -1 for null. */
int32_t AIBinder_debugGetRefCount(AIBinder* binder);

/** A total order of objects that holds for as long as both are alive. */
bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs);

// --- weak references ---

/** Null for null. */
__attribute__((warn_unused_result)) AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
/** Null is allowed. */
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
/** A strong reference that the caller releases; null when the object is gone, and for null. */
__attribute__((warn_unused_result)) AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);
__attribute__((warn_unused_result)) AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak);
/** The order of AIBinder_lt, which holds on when the objects are gone. */
bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs);

// --- death ---

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

/** Null for null. */
__attribute__((warn_unused_result)) AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied);
/**
 * Called once for each call of AIBinder_linkToDeath with a binder, when nothing can use its cookie
 * any more, also where linking fails: the place to free the cookie. To be set before the first
 * link.
 */
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);
/**
 * The recipient is notified no more, and its links have ended when this returns, but for that of a
 * notification that is running. Null is allowed; allowed within its own notification.
 */
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

/**
 * Notifies the recipient once, on a thread of the platform; once for a cookie, however often it was
 * linked with it. STATUS_UNEXPECTED_NULL for null, STATUS_INVALID_OPERATION for a local binder,
 * STATUS_DEAD_OBJECT when it is dead already.
 */
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);
/**
 * Ends one link. Does not wait for a notification that is running. STATUS_NAME_NOT_FOUND when no
 * such link is there, STATUS_DEAD_OBJECT when the binder has died.
 */
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

// --- calls ---

/** The caller's user and process while a call is served on this thread, else one's own. */
uid_t AIBinder_getCallingUid(void);
/** 0 while a one-way call is served. */
pid_t AIBinder_getCallingPid(void);
bool AIBinder_isHandlingTransaction(void);

/** Makes the parcel of one call, led by the interface's name. It is the caller's until transact. */
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);
/**
 * Calls. Takes over *in and clears it; sets *out to the reply, the caller's, when it returns
 * STATUS_OK. The parcel must come from AIBinder_prepareTransaction of the same binder.
 */
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags);

__END_DECLS
#pragma GCC visibility pop
