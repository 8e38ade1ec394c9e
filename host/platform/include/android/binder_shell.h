#pragma once

#include <stdint.h>
#include <sys/cdefs.h>

#include <android/binder_ibinder.h>

#pragma GCC visibility push(default)
__BEGIN_DECLS

/** Serves a command line; the three descriptors are the caller's standard streams, not owned. */
typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err,
                                                       const char** argv, uint32_t argc);

/** To be called before the first object of the class is made. */
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand);

__END_DECLS
#pragma GCC visibility pop
