#include "objects/Object.h"

void AIBinder::incStrong() {
    mStrong.fetch_add(1, std::memory_order_relaxed);
}

bool AIBinder::tryIncStrong() {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acquire)) return true;
    }
    return false;
}

void AIBinder::decStrong() {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    onLastStrong();
    decWeak();
}

void AIBinder::incWeak() {
    mWeak.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder::decWeak() {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

const AIBinder_Class* AIBinder::offerClass(const AIBinder_Class* clazz) {
    const AIBinder_Class* current = nullptr;
    return mClass.compare_exchange_strong(current, clazz) ? clazz : current;
}

binder::Stability AIBinder::offerStability(binder::Stability stability) {
    auto current = binder::Stability::kUndeclared;
    return mStability.compare_exchange_strong(current, stability) ? stability : current;
}
