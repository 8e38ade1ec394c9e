#include "tests/service/ServiceTest.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using vela::test::shown;
using V = VelaDefault;
using RefusalsTest = ServiceTest;

// Those without a result are the conformance tests'. The chip is not asked, or the fixture tells.
TEST_F(RefusalsTest, ResetTheResultWithAndWithoutTheLibrary) {
    for (VelaDefault* const service : {mService.get(), mDegraded.get()}) {
        EXPECT_EQ("-2 0", ask(*service, &V::commitLayerStack));
        EXPECT_EQ("-2 0", ask(*service, &V::configureVelaMaxcll));
        EXPECT_EQ("-2 " + shown(VelaFixedConfig()), ask(*service, &V::getCurrentConfig));
        EXPECT_EQ("-2 \"\"", ask(*service, &V::getDumpString));
        EXPECT_EQ("-2 " + shown(LutData()), ask(*service, &V::getLayerToneMappingLut));
        EXPECT_EQ("-2 0", ask(*service, &V::getOsdStatus));
        EXPECT_EQ("-2 0", ask(*service, &V::handleDisplayEvent));
        EXPECT_EQ("-2 1", ask(*service, &V::present));
        EXPECT_EQ("-2 0", ask(*service, &V::presentDisplay));
        EXPECT_EQ("-2 0", ask(*service, &V::setColorModeWithRenderIntent));
        EXPECT_EQ("-2 0", ask(*service, &V::setOsdAutoRefresh));
        EXPECT_EQ("-2 0", ask(*service, &V::setPowerMode));
        EXPECT_EQ("-2 { -1 }", ask(*service, &V::updateDisplayBrightness));
        EXPECT_EQ("-2 0", ask(*service, &V::setColorTransform));
    }
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
