#include "tests/support/Allocations.h"

#include "tests/composer/ComposerTest.h"
#include "translate/HidlToAidl.h"

namespace {

using vela::test::allocationsOf;

TEST(AllocationsTest, AForwardMakesNoneBeyondItsStatusAndTheLibrarysCall) {
    lmfg::installChip(std::make_shared<lmfg::SimulatedChip>());
    lmfg::VelaService* const service = lmfg::VelaService::init();
    const auto client = ndk::SharedRefBase::make<C>();
    client->init(service);
    const auto forward = [&] { (void)client->setClientTarget(0, 1); };
    forward();  // what is made once and stays
    const size_t status = allocationsOf([] { (void)ndk::ScopedAStatus::ok(); });
    const size_t call = allocationsOf([&] { service->SetClientTarget(1); });
    EXPECT_EQ(allocationsOf(forward), status + call);
    EXPECT_LE(status, 1u);
}

TEST(AllocationsTest, ATranslatedRecordMakesThoseOfACopy) {
    for (const size_t layers : {0u, 1u, 128u}) {
        for (const size_t length : {0u, 256u}) {
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
            EXPECT_EQ(allocationsOf([&] { (void)lmfg::a2h::translate(in, &record); }),
                      allocationsOf([&] { const V1_1::LayerStack copy = record; }));
            display::LayerStack out;
            EXPECT_EQ(allocationsOf([&] { (void)lmfg::h2a::translate(record, &out); }),
                      allocationsOf([&] { const display::LayerStack copy = out; }));
        }
    }
}

}  // namespace
