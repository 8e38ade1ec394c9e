#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "tests/composer/ComposerFixture.h"
#include "tests/support/LogCapture.h"

namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConstantCallback : public display::BnVelaComposerCallback {
  public:
    ndk::ScopedAStatus onConfigChanged(int64_t, int32_t, const std::vector<int32_t>&,
                                       std::vector<int32_t>* result) override {
        *result = {1};
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onRefreshRequested(int64_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus onDisplayPowerChanged(int64_t, int32_t) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onContentSamplingRequested(int64_t, int32_t, int64_t,
                                                  display::ContentSamples* samples) override {
        samples->value1 = 2;
        return ndk::ScopedAStatus::ok();
    }
};

// Events go on while callbacks come, are replaced and die, and after the client has gone.
TEST_F(ComposerTest, eventsMixWithRegistrationsAndTheEnd) {
    const vela::test::LogCapture quiet;
    std::atomic<bool> stopped = false;
    std::atomic<int> raised = 0;
    const auto awaitEvents = [&raised](int count) {
        const int until = raised + count;
        for (int now = raised; now < until; now = raised)
            raised.wait(now);
    };
    std::thread chip([&] {
        while (!stopped) {
            EXPECT_THAT(events().configChanged(1, 2, {}), AnyOf(IsEmpty(), ElementsAre(1)));
            events().refreshRequested(1);
            events().powerChanged(1, 2);
            EXPECT_THAT(events().contentSampling(1, 2, 3).value1, AnyOf(-1, 2));
            ++raised;
            raised.notify_all();
        }
    });
    std::thread platform([&, weak = std::weak_ptr(mClient)] {
        while (const auto client = weak.lock())
            client->handleAidlDeath();
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ("ok",
                  told(mClient->registerCallback(ndk::SharedRefBase::make<ConstantCallback>())));
    }
    awaitEvents(3);
    mClient.reset();
    platform.join();
    awaitEvents(3);
    EXPECT_THAT(events().configChanged(1, 2, {}), IsEmpty());
    stopped = true;
    chip.join();
}

}  // namespace
