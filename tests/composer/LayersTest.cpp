#include <random>

#include "tests/composer/ComposerTest.h"
#include "tests/translate/RecordFields.h"
#include "translate/AidlToHidl.h"

namespace {

using testing::ElementsAre;
using testing::Return;
using C = VelaComposerClient;

// Beyond 32 bits: narrowed to an int it is 5.
constexpr int64_t kWide = 0x1'0000'0005;
constexpr uint64_t kWideUnsigned = 0x1'0000'0005;

MATCHER_P4(isRect, left, top, right, bottom, "") {
    return arg.left == left && arg.top == top && arg.right == right && arg.bottom == bottom;
}

template <typename Record>
Record filled() {
    std::mt19937 generator(1);
    return fields::randomRecord<Record>(generator);
}

/** A record with the fields of the translated filled one. */
template <typename Record, typename In>
auto translationOfFilled() {
    Record record;
    (void)lmfg::a2h::translate(filled<In>(), &record);
    return testing::ResultOf(fields::toJson<Record>, fields::toJson(record));
}

using LayersTest = ComposerTest;

TEST_F(LayersTest, ForwardsTheStackAndItsLayers) {
    using Stack = display::LayerStack;
    EXPECT_CALL(*mChip, buildLayerStack(5, translationOfFilled<V1_1::LayerStack, Stack>()));
    EXPECT_EQ("unknown / ok", askBoth(&C::buildLayerStack, kWide, filled<Stack>()));
    EXPECT_CALL(*mChip, ChangeLayerType(kWideUnsigned, 5));
    EXPECT_EQ("unknown / ok", askBoth(&C::changeLayerType, kWide, kWide));
    EXPECT_CALL(*mChip, CommitLayerStack(5, false)).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::commitLayerStack, kWide, 0));
    EXPECT_CALL(*mChip, CommitLayerStack(5, true)).WillOnce(Return(3));
    EXPECT_EQ("-1 77 / ok 3", askBoth(&C::commitLayerStack, kWide, -2));
    EXPECT_CALL(*mChip, CreateLayer(7, 5));
    EXPECT_EQ("unknown / ok", askBoth(&C::createLayer, kWide, 7));
    EXPECT_CALL(*mChip, DestroyLayer(kWideUnsigned));
    EXPECT_EQ("unknown / ok", askBoth(&C::destroyLayer, 2, kWide));
    using Buffer = display::BufferInfo;
    EXPECT_CALL(*mChip, setLayerBuffer(kWideUnsigned, ~uint64_t{0},
                                       translationOfFilled<V1_1::BufferInfo, Buffer>()));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerBuffer, kWide, -1, filled<Buffer>()));
    EXPECT_CALL(*mChip, SetLayerCompositionType(kWideUnsigned, 2));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerCompositionType, 1, kWide, 2));
    display::HwcRect rect;
    rect.left = -1, rect.top = 2, rect.right = 3, rect.bottom = 4;
    EXPECT_CALL(*mChip, SetLayerDisplayFrame(kWideUnsigned, isRect(-1, 2, 3, 4)));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerDisplayFrame, 1, kWide, rect));
    EXPECT_CALL(*mChip, SetLayerSourceCrop(kWideUnsigned, isRect(-1, 2, 3, 4)));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerSourceCrop, 1, kWide, rect));
    EXPECT_CALL(*mChip, setLayerProperty(~0u, ~uint64_t{0}));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerProperty, 1, -1, -1));
    EXPECT_CALL(*mChip, SetLayerSetEmpty(5, true));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerSetEmpty, kWide, true));
    EXPECT_CALL(*mChip, SetLayerTransform(kWideUnsigned, 2));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerTransform, 1, kWide, 2));
    EXPECT_CALL(*mChip, SetLayerZOrder(kWideUnsigned, ~0u));
    EXPECT_EQ("unknown / ok", askBoth(&C::setLayerZOrder, 1, kWide, -1));
}

TEST_F(LayersTest, PresentsByTheWholeDisplayNumber) {
    EXPECT_CALL(*mChip, Present2nd).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_EQ("ok 1 / ok 1", askBoth(&C::present, 3));
    EXPECT_EQ("ok 1 / ok 0", askBoth(&C::present, 3));
    EXPECT_CALL(*mChip, Present).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_EQ("ok 1 / ok 1", askBoth(&C::present, 0));
    EXPECT_EQ("ok 1 / ok 0", askBoth(&C::present, 0x1'0000'0003));
    EXPECT_CALL(*mChip, PresentDisplay).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::presentDisplay, 0));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::presentDisplay, 1));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::presentDisplay, 0x1'0000'0000));
}

TEST_F(LayersTest, ForwardsWhatConcernsDisplays) {
    EXPECT_CALL(*mChip, configureVelaMaxcll(9)).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::configureVelaMaxcll, 9));
    EXPECT_CALL(*mChip, enableSecondaryDisplay(true));
    EXPECT_EQ("unknown / ok", askBoth(&C::enableSecondaryDisplay, true));
    EXPECT_EQ("unknown / ok", askBoth(&C::enableSecondaryDisplay, false));
    EXPECT_CALL(*mChip, handleDisplayEvent(kWideUnsigned, 2, -3)).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::handleDisplayEvent, kWide, 2, -3));
    EXPECT_CALL(*mChip, reportDualChannelStatus(-4));
    EXPECT_EQ("unknown / ok", askBoth(&C::reportDualChannelStatus, -4));
    using Config = display::DisplayConfigVariableInfo;
    EXPECT_CALL(*mChip,
                setActiveConfig(translationOfFilled<V1_1::DisplayConfigVariableInfo, Config>()));
    EXPECT_EQ("unknown / ok", askBoth(&C::setActiveConfig, 1, filled<Config>()));
    EXPECT_CALL(*mChip, SetClientTarget(6));
    EXPECT_EQ("unknown / ok", askBoth(&C::setClientTarget, 1, 6));
    EXPECT_CALL(*mChip, SetColorModeWithRenderIntent(2, 3)).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::setColorModeWithRenderIntent, 1, 2, 3));
    EXPECT_CALL(*mChip, SetPluggableDisplayConnected(true));
    EXPECT_EQ("unknown / ok", askBoth(&C::setDisplayConnected, 1, true));
    EXPECT_CALL(*mChip, SetVirtualDisplayConnected(false));
    EXPECT_EQ("unknown / ok", askBoth(&C::setDisplayConnected, 2, false));
    EXPECT_EQ("unknown / ok", askBoth(&C::setDisplayConnected, 0, true));
    EXPECT_EQ("unknown / ok", askBoth(&C::setDisplayConnected, 3, true));
    EXPECT_CALL(*mChip, setOsdAutoRefresh(2)).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::setOsdAutoRefresh, 2));
    EXPECT_CALL(*mChip, SetPowerMode(258)).Times(2);
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::setPowerMode, 1, 2, false, true));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::setPowerMode, 1, 258, true, true));
    EXPECT_CALL(*mChip, SetPowerMode(2));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::setPowerMode, 1, 2, true, false));
    EXPECT_CALL(*mChip, SetColorTransform(ElementsAre(1.5f, -2.0f))).WillOnce(Return(-22));
    EXPECT_EQ("-1 77 / ok -22", askBoth(&C::setColorTransform, std::vector{1.5f, -2.0f}));
    EXPECT_EQ("unknown / unknown", askBoth(&C::configureVelaHdrMode, 1));
    EXPECT_CALL(*mChip, setFrameBufferResolution(5, 1920, ~0u));
    EXPECT_EQ("-1 / ok", askBoth(&C::setFrameBufferResolution, kWide, 1920, -1));
    const std::string withZero("a\0b", 3);
    EXPECT_CALL(*mChip, setPanelName(5, withZero));
    EXPECT_EQ("-1 / ok", askBoth(&C::setPanelName, kWide, withZero));
}

}  // namespace
