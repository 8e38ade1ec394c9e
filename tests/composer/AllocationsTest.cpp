#include "tests/support/Allocations.h"

#include "tests/composer/ComposerTest.h"
#include "translate/AidlToHidl.h"
#include "translate/HidlToAidl.h"

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
    EXPECT_LE(status, 1u);
}

/** Translating a record of the library makes as many as copying what comes out. */
template <typename Out, typename In>
void expectThoseOfACopy(const In& in) {
    Out out;
    const size_t translated = allocationsOf([&] { (void)lmfg::h2a::translate(in, &out); });
    EXPECT_EQ(translated, allocationsOf([&] { const Out copy = out; }));
}

TEST_F(AllocationsTest, ATranslatedRecordMakesThoseOfACopy) {
    for (const size_t layers : {0u, 1u, 8u, 128u}) {
        for (const size_t length : {0u, 16u, 256u}) {
            SCOPED_TRACE(testing::Message() << layers << " layers, lists of " << length);
            display::LayerStack in;
            in.layers.resize(layers);
            for (display::Layer& layer : in.layers) {
                layer.list1.resize(length);
                layer.layerBuffer.colorMetaData.list1.resize(length);
                layer.layerBuffer.bufferInfo.list1.resize(length);
            }
            in.list1.resize(length);
            V1_1::LayerStack record;
            const size_t translated =
                    allocationsOf([&] { (void)lmfg::a2h::translate(in, &record); });
            EXPECT_EQ(translated, allocationsOf([&] { const V1_1::LayerStack copy = record; }));
            expectThoseOfACopy<display::LayerStack>(record);
        }
    }
    for (const size_t length : {0u, 16u, 65'536u}) {
        SCOPED_TRACE(length);
        V1_1::LutData lut;
        lut.list1.resize(length);
        lut.list2.resize(length);
        expectThoseOfACopy<display::LutData>(lut);
        V1_1::VelaFixedConfig config;
        config.list1.resize(length);
        config.list2.resize(length);
        expectThoseOfACopy<display::VelaFixedConfig>(config);
    }
}

}  // namespace
