#pragma once

#include <cstdint>
#include <memory>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>
#include <android/binder_auto_utils.h>

namespace load_test {

namespace display = aidl::vendor::lumenforge::hardware::display;

/**
 * One of many that call the service at once. What it writes, a register of the chip, of a panel and
 * a layer, is its own, so that it recognises the answers to its calls. One thread.
 */
class Caller {
  public:
    enum class Answer { kRight, kWrong, kServiceGone };

    /** Below 156, and nobody else's. */
    explicit Caller(int number) : mNumber(number) {}

    /** Makes a composer client and a layer; false when the service goes meanwhile. */
    bool connect(std::shared_ptr<display::IVela> vela);

    /** The next call: in turn one whose answer tells which it answers, and one of all others. */
    Answer call();
    /** Raises one event of each kind, about a number of its own, and waits for their end. */
    Answer raise();

  private:
    ndk::ScopedAStatus callOwn(int turn);
    ndk::ScopedAStatus callAny(size_t turn);
    Answer answerOf(const ndk::ScopedAStatus& status) const;

    const int mNumber;
    int mTurn = 0;
    int mRaised = 0;
    int32_t mWritten = 0;
    bool mIsRight = false;
    std::shared_ptr<display::IVela> mVela;
    std::shared_ptr<display::IVelaComposerClient> mComposer;
};

}  // namespace load_test
