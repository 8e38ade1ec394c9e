#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

#include <android/binder_status.h>

#pragma GCC visibility push(default)
__BEGIN_DECLS

/** Starts the first thread that serves calls; more are started on demand. */
void ABinderProcess_startThreadPool(void);
/**
 * The threads started on demand, besides that of startThreadPool and those that join; 15 unless
 * set. True when accepted; false once the pool has started and the number would shrink.
 */
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
bool ABinderProcess_isThreadPoolStarted(void);
/** Serves calls on this thread; does not return. */
void ABinderProcess_joinThreadPool(void);

/**
 * Whether threads that serve calls keep their own priority where the caller's is lower. Linux hands
 * no priorities on: nothing changes.
 */
void ABinderProcess_disableBackgroundScheduling(bool disable);

/** A descriptor, owned by the run time, that polls readable when a call waits to be served. */
__attribute__((warn_unused_result)) binder_status_t ABinderProcess_setupPolling(int* fd);
/** Serves what waits, then returns. */
__attribute__((warn_unused_result)) binder_status_t ABinderProcess_handlePolledCommands(void);

__END_DECLS
#pragma GCC visibility pop
