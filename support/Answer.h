#pragma once

#include <cstdint>
#include <utility>

#include <android/binder_auto_utils.h>

#include "support/Convert.h"
#include "support/Status.h"

namespace lmfg::support {

/**
 * The answer of a library operation that delivers it by calling a closure before it returns.
 *
 * The status is -1 until the library has called. A value is kept only with a status of zero or
 * more, and it is a copy: the library's own is valid only during the call. If the library calls
 * more than once, the last status and the last kept value stand. Used by one thread.
 */
template <typename Value>
class Answer {
  public:
    Answer() = default;
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    /** The closure to hand to the library, which must not call it after this object's end. */
    [[nodiscard]] auto receiver() {
        return [this](int32_t status, const auto& value) {
            mStatus = status;
            if (!isRefusal(status)) copyOut(value, &mValue);
        };
    }

    [[nodiscard]] int32_t status() const { return mStatus; }
    [[nodiscard]] const Value& value() const { return mValue; }

    /** Ends a request: a negative status becomes the error and leaves `out` as it is. */
    [[nodiscard]] ndk::ScopedAStatus moveTo(Value* out) {
        ndk::ScopedAStatus status = fromLibrary(mStatus);
        if (status.isOk()) *out = std::move(mValue);
        return status;
    }

  private:
    int32_t mStatus = kUnanswered;
    Value mValue{};
};

}  // namespace lmfg::support
