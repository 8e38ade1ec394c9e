#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

/**
 * Marks what a process does for a trace. On Linux a trace is whatever the process itself collects:
 * binder_host/Trace.h. Without a collector every function returns at once.
 */
#pragma GCC visibility push(default)
__BEGIN_DECLS

/** True while a trace is taken. */
bool ATrace_isEnabled(void);

/** Begins a section on this thread, within the one that is open. */
void ATrace_beginSection(const char* sectionName);
/** Ends the section of this thread that was begun last. */
void ATrace_endSection(void);

/** Begins what may end on another thread, under the same name and cookie. */
void ATrace_beginAsyncSection(const char* sectionName, int32_t cookie);
void ATrace_endAsyncSection(const char* sectionName, int32_t cookie);

/** The value that a counter has from now on. */
void ATrace_setCounter(const char* counterName, int64_t counterValue);

__END_DECLS
#pragma GCC visibility pop
