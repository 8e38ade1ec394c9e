#include "tests/composer/ComposerTest.h"

namespace {

using LayersTest = ComposerTest;

TEST_F(LayersTest, RequestsReachTheLibraryNarrowedAndTranslated) {
    answerWith({.status = -22});
    answers("CommitLayerStack[5,false]", &C::commitLayerStack, kWide, 0);
    answers("CommitLayerStack[5,true]", &C::commitLayerStack, kWide, -2);
    forwards("ChangeLayerType[4294967301,5]", &C::changeLayerType, kWide, kWide);
    forwards("CreateLayer[4294967301,5]", &C::createLayer, kWide, kWide);
    forwards("CreateLayer[7,8]", &C::createLayer, 8, 7);
    forwards("DestroyLayer[4294967301]", &C::destroyLayer, 2, kWide);
    forwards("SetLayerCompositionType[4294967301,2]", &C::setLayerCompositionType, 1, kWide, 2);
    forwards("setLayerProperty[4294967295,4294967301]", &C::setLayerProperty, 1, -1, kWide);
    forwards("SetLayerSetEmpty[5,true]", &C::setLayerSetEmpty, kWide, true);
    forwards("SetLayerTransform[4294967301,2]", &C::setLayerTransform, 1, kWide, 2);
    forwards("SetLayerZOrder[4294967301,4294967295]", &C::setLayerZOrder, 1, kWide, -1);

    const display::HwcRect rect{.left = -1, .top = 2, .right = 3, .bottom = 4};
    const std::string asks = R"([4294967301,{"left":-1,"top":2,"right":3,"bottom":4}])";
    forwards("SetLayerDisplayFrame" + asks, &C::setLayerDisplayFrame, 1, kWide, rect);
    forwards("SetLayerSourceCrop" + asks, &C::setLayerSourceCrop, 1, kWide, rect);
    const auto stack = untouched<display::LayerStack>();
    forwards("buildLayerStack[5," + translated<V1_1::LayerStack>(stack) + "]", &C::buildLayerStack,
             kWide, stack);
    const auto info = untouched<display::BufferInfo>();
    forwards("setLayerBuffer[4294967301,4294967302," + translated<V1_1::BufferInfo>(info) + "]",
             &C::setLayerBuffer, kWide, kWide + 1, info);
}

}  // namespace
