#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local size_t gAllocations = 0;

}  // namespace

size_t vela::test::allocationsOf(const std::function<void()>& action) {
    const size_t before = gAllocations;
    action();
    return gAllocations - before;
}

// The test program's own definitions come before the standard library's.

void* operator new(size_t size) {
    ++gAllocations;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) std::abort();
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
