#pragma once

#include <sys/cdefs.h>

#include <android/binder_ibinder.h>

#pragma GCC visibility push(default)
__BEGIN_DECLS

/** Marks calls between modules of one partition. Linux has a single partition: no flag at all. */
enum {
    FLAG_PRIVATE_LOCAL = 0,
};

/**
 * What the author of a local binder promises about its interface; to be called on a new binder,
 * before anybody else has it. Without a promise the binder has that of its compilation unit.
 */

/** The interface may change with the vendor's partition. For vendor code only. */
#if !defined(__ANDROID_VENDOR__)
__attribute__((unavailable))
#endif
void AIBinder_markVendorStability(AIBinder* binder);
/** The interface may change with the partition that the caller is built for. */
void AIBinder_markCompilationUnitStability(AIBinder* binder);
/** The interface is frozen. */
void AIBinder_markVintfStability(AIBinder* binder);

__END_DECLS
#pragma GCC visibility pop
