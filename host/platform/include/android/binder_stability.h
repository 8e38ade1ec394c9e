#pragma once

#include <sys/cdefs.h>

#include <android/binder_ibinder.h>

__BEGIN_DECLS

/** Marks calls between modules of one partition. Linux has a single partition: no flag at all. */
enum {
    FLAG_PRIVATE_LOCAL = 0,
};

/** Promises that the binder's interface is frozen. Nothing on Linux depends on that promise. */
static inline void AIBinder_markVintfStability(AIBinder* binder) {
    (void)binder;
}

__END_DECLS
