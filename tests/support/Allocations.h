#pragma once

#include <cstddef>
#include <functional>

namespace vela::test {

/** How often the action, of any library, asks operator new for memory on this thread. */
size_t allocationsOf(const std::function<void()>& action);

}  // namespace vela::test
