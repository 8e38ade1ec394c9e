#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/composer/ComposerFixture.h"
#include "tests/translate/RecordFields.h"
#include "translate/AidlToHidl.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Return;
using Chip = lmfg::MockChip;
using Client = display::VelaComposerClient;

// Beyond 32 bits: narrowed to an int it is 5.
constexpr int64_t kWide = 0x1'0000'0005;
constexpr uint64_t kWideUnsigned = 0x1'0000'0005;
constexpr int32_t kUntouched = 77;

// What an operation answers without a library.
enum class Absent { kUnknown, kMinusOne, kOkAndOne };

struct Row {
    std::string name;
    Absent absent;
    // The one call that reaches the chip, if any.
    std::function<void(Chip&)> expect;
    std::function<ndk::ScopedAStatus(Client&, int32_t*)> call;
    // What the operation hands out; nothing if it has no out-parameter.
    std::optional<int32_t> result = std::nullopt;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

MATCHER_P4(isRect, left, top, right, bottom, "") {
    return arg.left == left && arg.top == top && arg.right == right && arg.bottom == bottom;
}

// A record that translates to the same fields as `in`.
template <typename Record, typename In>
auto translationOf(const In& in) {
    Record record;
    lmfg::a2h::translate(in, &record);
    return ::testing::ResultOf([](const Record& arg) { return fields::flatten(arg); },
                               fields::flatten(record));
}

template <typename Record>
Record filled() {
    std::mt19937 generator(1);
    return fields::randomRecord<Record>(generator);
}

void expectNothing(Chip&) {}

display::HwcRect rect() {
    display::HwcRect result;
    result.left = -1;
    result.top = 2;
    result.right = 3;
    result.bottom = 4;
    return result;
}

const std::vector<Row>& rows() {
    static const std::vector<Row> kRows = {
            {"buildLayerStack", Absent::kUnknown,
             [](Chip& chip) {
                 EXPECT_CALL(chip, buildLayerStack(5, translationOf<V1_1::LayerStack>(
                                                              filled<display::LayerStack>())));
             },
             [](Client& client, int32_t*) {
                 return client.buildLayerStack(kWide, filled<display::LayerStack>());
             }},
            {"changeLayerType", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, ChangeLayerType(kWideUnsigned, 5)); },
             [](Client& client, int32_t*) { return client.changeLayerType(kWide, kWide); }},
            {"commitLayerStackWithoutFlags", Absent::kMinusOne,
             [](Chip& chip) {
                 EXPECT_CALL(chip, CommitLayerStack(5, false)).WillOnce(Return(-22));
             },
             [](Client& client, int32_t* out) { return client.commitLayerStack(kWide, 0, out); },
             -22},
            {"commitLayerStackWithAnyFlag", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, CommitLayerStack(5, true)).WillOnce(Return(3)); },
             [](Client& client, int32_t* out) { return client.commitLayerStack(kWide, -2, out); },
             3},
            {"configureVelaMaxcll", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, configureVelaMaxcll(9)).WillOnce(Return(-22)); },
             [](Client& client, int32_t* out) { return client.configureVelaMaxcll(9, out); }, -22},
            {"createLayerSwaps", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, CreateLayer(7, 5)); },
             [](Client& client, int32_t*) { return client.createLayer(kWide, 7); }},
            {"destroyLayer", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, DestroyLayer(kWideUnsigned)); },
             [](Client& client, int32_t*) { return client.destroyLayer(2, kWide); }},
            {"enableSecondaryDisplay", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, enableSecondaryDisplay(true)); },
             [](Client& client, int32_t*) { return client.enableSecondaryDisplay(true); }},
            {"enableSecondaryDisplayNeverOff", Absent::kUnknown, expectNothing,
             [](Client& client, int32_t*) { return client.enableSecondaryDisplay(false); }},
            {"handleDisplayEvent", Absent::kMinusOne,
             [](Chip& chip) {
                 EXPECT_CALL(chip, handleDisplayEvent(kWideUnsigned, 2, -3)).WillOnce(Return(-22));
             },
             [](Client& client, int32_t* out) {
                 return client.handleDisplayEvent(kWide, 2, -3, out);
             },
             -22},
            {"presentSecond", Absent::kOkAndOne,
             [](Chip& chip) { EXPECT_CALL(chip, Present2nd()).WillOnce(Return(true)); },
             [](Client& client, int32_t* out) { return client.present(3, out); }, 1},
            {"presentFirst", Absent::kOkAndOne,
             [](Chip& chip) { EXPECT_CALL(chip, Present()).WillOnce(Return(true)); },
             [](Client& client, int32_t* out) { return client.present(0, out); }, 1},
            {"presentTakesTheWholeNumber", Absent::kOkAndOne,
             [](Chip& chip) { EXPECT_CALL(chip, Present()).WillOnce(Return(false)); },
             [](Client& client, int32_t* out) { return client.present(0x1'0000'0003, out); }, 0},
            {"presentDisplayPrimary", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, PresentDisplay()).WillOnce(Return(-22)); },
             [](Client& client, int32_t* out) { return client.presentDisplay(0, out); }, -22},
            {"presentDisplayOther", Absent::kMinusOne, expectNothing,
             [](Client& client, int32_t* out) { return client.presentDisplay(1, out); }, 0},
            {"presentDisplayTakesTheWholeNumber", Absent::kMinusOne, expectNothing,
             [](Client& client, int32_t* out) { return client.presentDisplay(0x1'0000'0000, out); },
             0},
            {"reportDualChannelStatus", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, reportDualChannelStatus(-4)); },
             [](Client& client, int32_t*) { return client.reportDualChannelStatus(-4); }},
            {"setActiveConfig", Absent::kUnknown,
             [](Chip& chip) {
                 EXPECT_CALL(chip, setActiveConfig(translationOf<V1_1::DisplayConfigVariableInfo>(
                                           filled<display::DisplayConfigVariableInfo>())));
             },
             [](Client& client, int32_t*) {
                 return client.setActiveConfig(1, filled<display::DisplayConfigVariableInfo>());
             }},
            {"setClientTarget", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetClientTarget(6)); },
             [](Client& client, int32_t*) { return client.setClientTarget(1, 6); }},
            {"setColorModeWithRenderIntent", Absent::kMinusOne,
             [](Chip& chip) {
                 EXPECT_CALL(chip, SetColorModeWithRenderIntent(2, 3)).WillOnce(Return(-22));
             },
             [](Client& client, int32_t* out) {
                 return client.setColorModeWithRenderIntent(1, 2, 3, out);
             },
             -22},
            {"setDisplayConnectedPluggable", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetPluggableDisplayConnected(true)); },
             [](Client& client, int32_t*) { return client.setDisplayConnected(1, true); }},
            {"setDisplayConnectedVirtual", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetVirtualDisplayConnected(false)); },
             [](Client& client, int32_t*) { return client.setDisplayConnected(2, false); }},
            {"setDisplayConnectedPrimary", Absent::kUnknown, expectNothing,
             [](Client& client, int32_t*) { return client.setDisplayConnected(0, true); }},
            {"setDisplayConnectedOther", Absent::kUnknown, expectNothing,
             [](Client& client, int32_t*) { return client.setDisplayConnected(3, true); }},
            {"setLayerBuffer", Absent::kUnknown,
             [](Chip& chip) {
                 EXPECT_CALL(chip, setLayerBuffer(kWideUnsigned, ~uint64_t{0},
                                                  translationOf<V1_1::BufferInfo>(
                                                          filled<display::BufferInfo>())));
             },
             [](Client& client, int32_t*) {
                 return client.setLayerBuffer(kWide, -1, filled<display::BufferInfo>());
             }},
            {"setLayerCompositionType", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetLayerCompositionType(kWideUnsigned, 2)); },
             [](Client& client, int32_t*) { return client.setLayerCompositionType(1, kWide, 2); }},
            {"setLayerDisplayFrame", Absent::kUnknown,
             [](Chip& chip) {
                 EXPECT_CALL(chip, SetLayerDisplayFrame(kWideUnsigned, isRect(-1, 2, 3, 4)));
             },
             [](Client& client, int32_t*) {
                 return client.setLayerDisplayFrame(1, kWide, rect());
             }},
            {"setLayerProperty", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, setLayerProperty(~0u, ~uint64_t{0})); },
             [](Client& client, int32_t*) { return client.setLayerProperty(1, -1, -1); }},
            {"setLayerSetEmpty", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetLayerSetEmpty(5, true)); },
             [](Client& client, int32_t*) { return client.setLayerSetEmpty(kWide, true); }},
            {"setLayerSourceCrop", Absent::kUnknown,
             [](Chip& chip) {
                 EXPECT_CALL(chip, SetLayerSourceCrop(kWideUnsigned, isRect(-1, 2, 3, 4)));
             },
             [](Client& client, int32_t*) { return client.setLayerSourceCrop(1, kWide, rect()); }},
            {"setLayerTransform", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetLayerTransform(kWideUnsigned, 2)); },
             [](Client& client, int32_t*) { return client.setLayerTransform(1, kWide, 2); }},
            {"setLayerZOrder", Absent::kUnknown,
             [](Chip& chip) { EXPECT_CALL(chip, SetLayerZOrder(kWideUnsigned, ~0u)); },
             [](Client& client, int32_t*) { return client.setLayerZOrder(1, kWide, -1); }},
            {"setOsdAutoRefresh", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, setOsdAutoRefresh(2)).WillOnce(Return(-22)); },
             [](Client& client, int32_t* out) { return client.setOsdAutoRefresh(2, out); }, -22},
            {"setPowerModeWithSecondFlag", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, SetPowerMode(258)); },
             [](Client& client, int32_t* out) {
                 return client.setPowerMode(1, 2, false, true, out);
             },
             0},
            {"setPowerModeWithFirstFlag", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, SetPowerMode(2)); },
             [](Client& client, int32_t* out) {
                 return client.setPowerMode(1, 2, true, false, out);
             },
             0},
            {"setPowerModeKeepsTheFlagOfTheMode", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, SetPowerMode(258)); },
             [](Client& client, int32_t* out) {
                 return client.setPowerMode(1, 258, false, false, out);
             },
             0},
            {"setColorTransform", Absent::kMinusOne,
             [](Chip& chip) {
                 EXPECT_CALL(chip, SetColorTransform(ElementsAre(1.5f, -2.0f)))
                         .WillOnce(Return(-22));
             },
             [](Client& client, int32_t* out) {
                 return client.setColorTransform({1.5f, -2.0f}, out);
             },
             -22},
            {"setFrameBufferResolution", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, setFrameBufferResolution(5, 1920, ~0u)); },
             [](Client& client, int32_t*) {
                 return client.setFrameBufferResolution(kWide, 1920, -1);
             }},
            {"setPanelName", Absent::kMinusOne,
             [](Chip& chip) { EXPECT_CALL(chip, setPanelName(5, std::string("a\0b", 3))); },
             [](Client& client, int32_t*) {
                 return client.setPanelName(kWide, std::string("a\0b", 3));
             }},
    };
    return kRows;
}

class LayersTest : public ComposerTest, public ::testing::WithParamInterface<Row> {};

TEST_P(LayersTest, reachesTheChip) {
    const Row& row = GetParam();
    row.expect(*mChip);
    int32_t out = kUntouched;
    EXPECT_EQ("ok", told(row.call(*mClient, &out)));
    EXPECT_EQ(row.result.value_or(kUntouched), out);
}

TEST_P(LayersTest, answersWithoutALibrary) {
    const Row& row = GetParam();
    int32_t out = kUntouched;
    const std::string status = told(row.call(*mAbsent, &out));
    switch (row.absent) {
        case Absent::kUnknown:
            EXPECT_EQ("unknown", status);
            EXPECT_EQ(kUntouched, out);
            break;
        case Absent::kMinusOne:
            EXPECT_EQ("-1", status);
            EXPECT_EQ(kUntouched, out);
            break;
        case Absent::kOkAndOne:
            EXPECT_EQ("ok", status);
            EXPECT_EQ(1, out);
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, LayersTest, ::testing::ValuesIn(rows()),
                         [](const auto& info) { return info.param.name; });

TEST_F(ComposerTest, hdrModeIsNeverConfigured) {
    EXPECT_EQ("unknown", told(mClient->configureVelaHdrMode(1)));
    EXPECT_EQ("unknown", told(mAbsent->configureVelaHdrMode(1)));
}

}  // namespace
