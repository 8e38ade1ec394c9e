#pragma once

#include "calls/Peers.h"

namespace binder {

/**
 * The other processes of the user, to which this one makes itself known at the first need. Null,
 * logged, while that is impossible, and in a process that was forked from one that had done it.
 */
Peers* joinProcesses();

}  // namespace binder
