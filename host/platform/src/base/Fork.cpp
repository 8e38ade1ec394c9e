#include "base/Fork.h"

#include <atomic>

#include <pthread.h>

namespace binder {
namespace {

std::atomic<bool> gForked{false};

}  // namespace

bool isForked() {
    [[maybe_unused]] static const int registered =
            pthread_atfork(nullptr, nullptr, [] { gForked.store(true); });
    return gForked.load(std::memory_order_relaxed);
}

}  // namespace binder
