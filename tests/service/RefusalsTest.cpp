#include "tests/service/ServiceTest.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using vela::test::shown;
using V = VelaDefault;

/** Asks a service each operation that only composer clients serve. */
void expectRefusals(V& service) {
    EXPECT_EQ("-2", ask(service, &V::buildLayerStack));
    EXPECT_EQ("-2", ask(service, &V::changeLayerType));
    EXPECT_EQ("-2 0", ask(service, &V::commitLayerStack));
    EXPECT_EQ("-2 0", ask(service, &V::configureVelaMaxcll));
    EXPECT_EQ("-2", ask(service, &V::createLayer));
    EXPECT_EQ("-2", ask(service, &V::destroyLayer));
    EXPECT_EQ("-2", ask(service, &V::enableSecondaryDisplay, true));
    EXPECT_EQ("-2 " + shown(VelaFixedConfig()), ask(service, &V::getCurrentConfig));
    EXPECT_EQ("-2 \"\"", ask(service, &V::getDumpString));
    EXPECT_EQ("-2 " + shown(LutData()), ask(service, &V::getLayerToneMappingLut));
    EXPECT_EQ("-2 0", ask(service, &V::getOsdStatus));
    EXPECT_EQ("-2 0", ask(service, &V::handleDisplayEvent));
    EXPECT_EQ("-2 1", ask(service, &V::present));
    EXPECT_EQ("-2 0", ask(service, &V::presentDisplay));
    EXPECT_EQ("-2", ask(service, &V::reportDualChannelStatus));
    EXPECT_EQ("-2", ask(service, &V::setActiveConfig));
    EXPECT_EQ("-2", ask(service, &V::setClientTarget));
    EXPECT_EQ("-2 0", ask(service, &V::setColorModeWithRenderIntent));
    EXPECT_EQ("-2", ask(service, &V::setDisplayConnected));
    EXPECT_EQ("-2", ask(service, &V::setLayerBuffer));
    EXPECT_EQ("-2", ask(service, &V::setLayerCompositionType));
    EXPECT_EQ("-2", ask(service, &V::setLayerDisplayFrame));
    EXPECT_EQ("-2", ask(service, &V::setLayerProperty));
    EXPECT_EQ("-2", ask(service, &V::setLayerSetEmpty));
    EXPECT_EQ("-2", ask(service, &V::setLayerSourceCrop));
    EXPECT_EQ("-2", ask(service, &V::setLayerTransform));
    EXPECT_EQ("-2", ask(service, &V::setLayerZOrder));
    EXPECT_EQ("-2 0", ask(service, &V::setOsdAutoRefresh));
    EXPECT_EQ("-2 0", ask(service, &V::setPowerMode));
    EXPECT_EQ("-2 { -1 }", ask(service, &V::updateDisplayBrightness));
    EXPECT_EQ("-2 0", ask(service, &V::setColorTransform));
    EXPECT_EQ("-2", ask(service, &V::configureVelaHdrMode));
}

using RefusalsTest = ServiceTest;

// The chip is strict: asking it anything fails the test.
TEST_F(RefusalsTest, AreTheSameWithAndWithoutTheLibrary) {
    expectRefusals(*mService);
    expectRefusals(*mDegraded);
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
