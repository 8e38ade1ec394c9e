#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

#include "vts/Service.h"

namespace vts {
namespace {

using ndk::ScopedAStatus;
using ndk::SharedRefBase;

class ComposerClientTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (HasFatalFailure()) return;
        const ScopedAStatus status = vela->createComposerClient(&composer);
        ASSERT_TRUE(status.isOk()) << status.getDescription();
        ASSERT_NE(composer, nullptr);
    }

    std::shared_ptr<display::IVelaComposerClient> composer;
};

struct Callback : display::BnVelaComposerCallback {
    ScopedAStatus onConfigChanged(int64_t, int32_t, const std::vector<int32_t>&,
                                  std::vector<int32_t>* result) override {
        result->clear();
        return ScopedAStatus::ok();
    }
    ScopedAStatus onRefreshRequested(int64_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onDisplayPowerChanged(int64_t, int32_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onContentSamplingRequested(int64_t, int32_t, int64_t,
                                             display::ContentSamples* samples) override {
        *samples = {};
        return ScopedAStatus::ok();
    }
};

TEST_F(ComposerClientTest, isTheFrozenVersion) {
    int32_t version = 0;
    ASSERT_TRUE(composer->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 2);
    std::string hash;
    ASSERT_TRUE(composer->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(hash, display::IVelaComposerClient::hash);
}

TEST_F(ComposerClientTest, registersACallbackAgainAndIgnoresNull) {
    const auto callback = SharedRefBase::make<Callback>();
    EXPECT_TRUE(composer->registerCallback(nullptr).isOk());
    EXPECT_TRUE(composer->registerCallback(callback).isOk());
    EXPECT_TRUE(composer->registerCallback(callback).isOk());
    EXPECT_TRUE(composer->registerCallback(nullptr).isOk());
}

TEST_F(ComposerClientTest, drivesAFrame) {
    constexpr int64_t kDisplay = 0;
    constexpr int64_t kLayer = 7;
    display::LayerStack stack;
    stack.layers.resize(1);
    stack.layers[0].value1 = static_cast<int32_t>(kLayer);
    const std::function<ScopedAStatus()> steps[] = {
            [&] { return composer->createLayer(kDisplay, kLayer); },
            [&] { return composer->setLayerZOrder(kDisplay, kLayer, 1); },
            [&] { return composer->setLayerCompositionType(kDisplay, kLayer, 2); },
            [&] { return composer->setLayerTransform(kDisplay, kLayer, 0); },
            [&] {
                return composer->setLayerDisplayFrame(kDisplay, kLayer, {0, 0, 1080, 2400});
            },
            [&] {
                return composer->setLayerSourceCrop(kDisplay, kLayer, {0, 0, 1080, 2400});
            },
            [&] { return composer->setLayerBuffer(kDisplay, kLayer, {}); },
            [&] { return composer->buildLayerStack(kDisplay, stack); },
            [&] { return composer->destroyLayer(kDisplay, kLayer); },
    };
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(i);
        const ScopedAStatus status = steps[i]();
        EXPECT_TRUE(status.isOk()) << status.getDescription();
    }
    int32_t result = -1;
    EXPECT_TRUE(composer->commitLayerStack(kDisplay, 1, &result).isOk());
    EXPECT_TRUE(composer->present(kDisplay, &result).isOk());
    EXPECT_TRUE(result == 0 || result == 1) << result;
    EXPECT_TRUE(composer->presentDisplay(1, &result).isOk());
    EXPECT_EQ(result, 0) << "only display 0 is presented this way";
}

TEST_F(ComposerClientTest, givesItsFixedAnswers) {
    EXPECT_EQ(composer->configureVelaHdrMode(0).getStatus(), STATUS_UNKNOWN_ERROR);
    int32_t value = -1;
    EXPECT_TRUE(composer->getOsdStatus(2, &value).isOk());
    EXPECT_EQ(value, 0);
    value = -1;
    EXPECT_TRUE(composer->setPowerMode(0, 2, false, true, &value).isOk());
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(composer->setDisplayConnected(3, true).isOk());
    EXPECT_TRUE(composer->enableSecondaryDisplay(false).isOk());
}

TEST_F(ComposerClientTest, survivesAnotherClient) {
    std::shared_ptr<display::IVelaComposerClient> second;
    ASSERT_TRUE(vela->createComposerClient(&second).isOk());
    EXPECT_NE(second->asBinder(), composer->asBinder());
    std::string text;
    EXPECT_TRUE(composer->getDumpString(0, &text).isOk());
    second.reset();
    EXPECT_TRUE(composer->getDumpString(0, &text).isOk());
}

}  // namespace
}  // namespace vts
