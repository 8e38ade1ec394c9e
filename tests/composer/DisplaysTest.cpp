#include "tests/composer/ComposerTest.h"

namespace {

using DisplaysTest = ComposerTest;

TEST_F(DisplaysTest, PresentsByTheWholeDisplayNumber) {
    for (const int status : {0, -22}) {
        answerWith({.status = status});
        const std::string presented = status == 0 ? " ok 1" : " ok 0";
        EXPECT_EQ("ok 1 / Present2nd[]" + presented, both(&C::present, 3));
        for (const int64_t display : {int64_t{0}, kWide - 2})
            EXPECT_EQ("ok 1 / Present[]" + presented, both(&C::present, display));
    }
    answers("PresentDisplay[]", &C::presentDisplay, 0);
    for (const int64_t display : {int64_t{1}, kWide - 5})
        EXPECT_EQ("-1 77 / ok 0", both(&C::presentDisplay, display));
}

TEST_F(DisplaysTest, RequestsReachTheLibraryNarrowedAndTranslated) {
    answerWith({.status = -22});
    answers("configureVelaMaxcll[9]", &C::configureVelaMaxcll, 9);
    answers("handleDisplayEvent[4294967301,2,-3]", &C::handleDisplayEvent, kWide, 2, -3);
    answers("SetColorModeWithRenderIntent[2,3]", &C::setColorModeWithRenderIntent, 1, 2, 3);
    answers("setOsdAutoRefresh[2]", &C::setOsdAutoRefresh, 2);
    answers("SetColorTransform[[1.5,-2.0]]", &C::setColorTransform, std::vector{1.5f, -2.0f});
    forwards("enableSecondaryDisplay[true]", &C::enableSecondaryDisplay, true);
    EXPECT_EQ("unknown / ok", both(&C::enableSecondaryDisplay, false));
    forwards("reportDualChannelStatus[-4]", &C::reportDualChannelStatus, -4);
    forwards("SetClientTarget[6]", &C::setClientTarget, 1, 6);
    forwards("SetPluggableDisplayConnected[true]", &C::setDisplayConnected, 1, true);
    forwards("SetVirtualDisplayConnected[false]", &C::setDisplayConnected, 2, false);
    for (const int64_t display : {int64_t{0}, int64_t{3}, kWide - 4, kWide - 3})
        EXPECT_EQ("unknown / ok", both(&C::setDisplayConnected, display, true)) << display;
    using Config = V1_1::DisplayConfigVariableInfo;
    const auto config = untouched<display::DisplayConfigVariableInfo>();
    forwards("setActiveConfig[" + translated<Config>(config) + "]", &C::setActiveConfig, 1, config);
    EXPECT_EQ("unknown / unknown", both(&C::configureVelaHdrMode, 1));
    EXPECT_EQ("-1 / setFrameBufferResolution[5,1920,4294967295] ok",
              both(&C::setFrameBufferResolution, kWide, 1920, -1));
    EXPECT_EQ("-1 / setPanelName[5,\"a\\u0000b\"] ok",
              both(&C::setPanelName, kWide, std::string("a\0b", 3)));

    // The second flag travels as a bit of the mode, which it does not clear.
    EXPECT_EQ("-1 77 / SetPowerMode[258] ok 0", both(&C::setPowerMode, 1, 2, false, true));
    EXPECT_EQ("-1 77 / SetPowerMode[258] ok 0", both(&C::setPowerMode, 1, 258, true, false));
    EXPECT_EQ("-1 77 / SetPowerMode[2] ok 0", both(&C::setPowerMode, 1, 2, true, false));
}

}  // namespace
