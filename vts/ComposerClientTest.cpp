#include <cstdint>
#include <memory>
#include <string>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

#include "vts/Service.h"

namespace vts {
namespace {

using I = display::IVelaComposerClient;

class ComposerClientTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_EQ("ok", told(vela->createComposerClient(&composer)));
        ASSERT_NE(composer, nullptr);
    }

    std::shared_ptr<I> composer;
};

struct Callback : display::BnVelaComposerCallback {
    ScopedAStatus onConfigChanged(int64_t, int32_t, const Values&, Values* out) override {
        out->clear();
        return ScopedAStatus::ok();
    }
    ScopedAStatus onRefreshRequested(int64_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onDisplayPowerChanged(int64_t, int32_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onContentSamplingRequested(int64_t, int32_t, int64_t,
                                             display::ContentSamples* out) override {
        *out = {};
        return ScopedAStatus::ok();
    }
};

TEST_F(ComposerClientTest, IsTheFrozenVersion) {
    expectFrozenVersion(*composer);
}

TEST_F(ComposerClientTest, RegistersACallbackAgainAndIgnoresNull) {
    const auto callback = SharedRefBase::make<Callback>();
    for (const auto& each : {std::shared_ptr<Callback>(), callback, callback})
        EXPECT_EQ("ok", told(composer->registerCallback(each)));
}

TEST_F(ComposerClientTest, DrivesAFrame) {
    constexpr int64_t kDisplay = 0;
    constexpr int64_t kLayer = 7;
    display::LayerStack stack;
    stack.layers.resize(1);
    stack.layers[0].value1 = static_cast<int32_t>(kLayer);
    display::HwcRect whole;
    whole.right = 1080;
    whole.bottom = 2400;
    EXPECT_EQ("ok", ask(*composer, &I::createLayer, kDisplay, kLayer));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerZOrder, kDisplay, kLayer, 1));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerCompositionType, kDisplay, kLayer, 2));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerTransform, kDisplay, kLayer, 0));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerDisplayFrame, kDisplay, kLayer, whole));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerSourceCrop, kDisplay, kLayer, whole));
    EXPECT_EQ("ok", ask(*composer, &I::setLayerBuffer, kDisplay, kLayer));
    EXPECT_EQ("ok", ask(*composer, &I::buildLayerStack, kDisplay, stack));
    EXPECT_EQ("ok", ask(*composer, &I::destroyLayer, kDisplay, kLayer));
    EXPECT_EQ("ok", ask(*composer, &I::commitLayerStack, kDisplay, 1).substr(0, 2));
    const std::string presented = ask(*composer, &I::present, kDisplay);
    EXPECT_TRUE(presented == "ok 0" || presented == "ok 1") << presented;
    EXPECT_EQ("ok 0", ask(*composer, &I::presentDisplay, 1)) << "only display 0 is presented so";
}

TEST_F(ComposerClientTest, GivesItsFixedAnswers) {
    EXPECT_EQ("unknown", ask(*composer, &I::configureVelaHdrMode));
    EXPECT_EQ("ok 0", ask(*composer, &I::getOsdStatus, 2));
    EXPECT_EQ("ok 0", ask(*composer, &I::setPowerMode, 0, 2, false, true));
    EXPECT_EQ("ok", ask(*composer, &I::setDisplayConnected, 3, true));
    EXPECT_EQ("ok", ask(*composer, &I::enableSecondaryDisplay, false));
}

TEST_F(ComposerClientTest, SurvivesAnotherClient) {
    std::shared_ptr<I> second;
    ASSERT_EQ("ok", told(vela->createComposerClient(&second)));
    EXPECT_NE(second->asBinder(), composer->asBinder());
    EXPECT_EQ("ok", ask(*composer, &I::getDumpString).substr(0, 2));
    second.reset();
    EXPECT_EQ("ok", ask(*composer, &I::getDumpString).substr(0, 2));
}

}  // namespace
}  // namespace vts
