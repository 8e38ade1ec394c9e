#include "tests/support/Allocations.h"

#include "tests/composer/ComposerTest.h"
#include "translate/AidlToHidl.h"

namespace {

using vela::test::allocationsOf;

using AllocationsTest = ComposerTest;

TEST_F(AllocationsTest, AForwardMakesNoneBeyondItsStatusAndTheLibrarysCall) {
    EXPECT_CALL(*mChip, CreateLayer).Times(testing::AnyNumber());
    const auto forward = [&] { (void)mClient->createLayer(0, 1); };
    forward();  // what is made once and stays
    const size_t status = allocationsOf([] { (void)ndk::ScopedAStatus::ok(); });
    const size_t call = allocationsOf([&] { mService->CreateLayer(1, 0); });
    EXPECT_EQ(allocationsOf(forward), status + call);
}

TEST_F(AllocationsTest, ATranslatedStackMakesThoseOfACopy) {
    for (const size_t length : {0u, 16u}) {
        display::LayerStack in;
        in.layers.resize(8);
        for (display::Layer& layer : in.layers) {
            layer.list1.resize(length);
            layer.layerBuffer.colorMetaData.list1.resize(length);
            layer.layerBuffer.bufferInfo.list1.resize(length);
        }
        in.list1.resize(length);
        V1_1::LayerStack record;
        V1_1::LayerStack copy;
        const size_t translated = allocationsOf([&] { (void)lmfg::a2h::translate(in, &record); });
        EXPECT_EQ(translated, allocationsOf([&] { copy = record; })) << length;
    }
    V1_1::LayerStack none;
    EXPECT_EQ(0u, allocationsOf([&] { (void)lmfg::a2h::translate(display::LayerStack(), &none); }));
}

}  // namespace
