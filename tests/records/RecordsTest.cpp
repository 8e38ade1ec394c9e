#include "records/V1_1/types.h"

#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "records/V1_2/types.h"

namespace {

using namespace ::vendor::lumenforge::hardware::display;

template <typename Record, size_t Padding>
struct Layout {
    using Type = Record;
    static constexpr size_t kPadding = Padding;
};

template <typename Layout>
class ZeroedRecordTest : public ::testing::Test {};

using Records = ::testing::Types<
        Layout<V1_1::HwcRect, 0>, Layout<V1_1::LayerRect, 0>, Layout<V1_1::LayerTransform, 2>,
        Layout<V1_1::ColorMetaData, 9>, Layout<V1_1::BufferInfo, 3>, Layout<V1_1::LayerBuffer, 23>,
        Layout<V1_1::Layer, 35>, Layout<V1_1::LayerStack, 10>,
        Layout<V1_1::DisplayConfigVariableInfo, 8>, Layout<V1_1::VelaFixedConfig, 10>,
        Layout<V1_1::LutData, 24>, Layout<V1_2::DisplayConfigVariableInfo_1_2, 15>,
        Layout<V1_2::BufferInfo_1_2, 6>, Layout<V1_2::VelaFixedConfig_1_2, 17>>;
TYPED_TEST_SUITE(ZeroedRecordTest, Records);

TYPED_TEST(ZeroedRecordTest, DefaultConstructionClearsEveryMember) {
    // Bytes that construction leaves as they were show as different between the two fills. No more
    // than the padding may do so: a member that is not initialised would.
    using Record = typename TypeParam::Type;
    alignas(Record) unsigned char first[sizeof(Record)];
    alignas(Record) unsigned char second[sizeof(Record)];
    std::memset(first, 0x55, sizeof(first));
    std::memset(second, 0xaa, sizeof(second));
    auto* one = new (first) Record;
    auto* two = new (second) Record;
    size_t untouched = 0;
    for (size_t i = 0; i < sizeof(Record); ++i) {
        if (first[i] == 0x55 && second[i] == 0xaa) {
            ++untouched;
        } else {
            EXPECT_EQ(first[i], 0) << "byte " << i;
            EXPECT_EQ(second[i], 0) << "byte " << i;
        }
    }
    EXPECT_LE(untouched, TypeParam::kPadding);
    one->~Record();
    two->~Record();
}

}  // namespace
