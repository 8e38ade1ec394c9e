#pragma once

#include <functional>

namespace binder {

/** Starts a detached thread. False, logged, when the system has none left. */
bool startThread(const char* name, std::function<void()> body);
/** Starts one that takes no signals, since it never runs anybody else's code. */
bool startQuietThread(const char* name, std::function<void()> body);

}  // namespace binder
