#pragma once

namespace binder {

/**
 * True in a child that was forked, without exec, from a process that had asked this before. Such a
 * child shares its parent's sockets and has none of the threads that serve them.
 */
bool isForked();

}  // namespace binder
