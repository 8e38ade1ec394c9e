#include <functional>

#include "tests/service/ServiceTest.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

/** An operation that only composer clients serve; it checks its own out-parameter. */
struct Refusal {
    const char* name;
    std::function<ndk::ScopedAStatus(VelaDefault&)> call;
};

/** Calls an operation with an out-parameter that holds something, and checks what is left in it. */
template <typename Out, typename Call>
auto resetting(Out before, Out after, Call call) {
    return [=](VelaDefault& service) {
        Out out = before;
        ndk::ScopedAStatus status = call(service, &out);
        EXPECT_TRUE(out == after);
        return status;
    };
}

template <typename Call>
auto answering(int32_t after, Call call) {
    return resetting<int32_t>(99, after, call);
}

VelaFixedConfig someConfig() {
    VelaFixedConfig config;
    config.value1 = 1;
    config.value24 = 24;
    config.list1 = {1};
    config.list2 = {2, 3};
    return config;
}

LutData someLut() {
    LutData lut;
    lut.value1 = 1;
    lut.value2 = 2;
    lut.list1 = {1};
    lut.list2 = {2};
    lut.flag1 = 1;
    lut.flag2 = -1;
    return lut;
}

std::vector<Refusal> refusals() {
    using S = VelaDefault;
    using Int = int32_t*;
    using Values = std::vector<int32_t>;
    return {
            {"buildLayerStack", [](S& s) { return s.buildLayerStack(1, {}); }},
            {"changeLayerType", [](S& s) { return s.changeLayerType(1, 2); }},
            {"commitLayerStack",
             answering(0, [](S& s, Int out) { return s.commitLayerStack(1, 2, out); })},
            {"configureVelaMaxcll",
             answering(0, [](S& s, Int out) { return s.configureVelaMaxcll(1, out); })},
            {"createLayer", [](S& s) { return s.createLayer(1, 2); }},
            {"destroyLayer", [](S& s) { return s.destroyLayer(1, 2); }},
            {"enableSecondaryDisplay", [](S& s) { return s.enableSecondaryDisplay(true); }},
            {"getCurrentConfig",
             resetting(someConfig(), VelaFixedConfig(),
                       [](S& s, VelaFixedConfig* out) { return s.getCurrentConfig(0, out); })},
            {"getDumpString",
             resetting(std::string("text"), std::string(),
                       [](S& s, std::string* out) { return s.getDumpString(0, out); })},
            {"getLayerToneMappingLut",
             resetting(someLut(), LutData(),
                       [](S& s, LutData* out) { return s.getLayerToneMappingLut(1, 2, out); })},
            {"getOsdStatus", answering(0, [](S& s, Int out) { return s.getOsdStatus(1, out); })},
            {"handleDisplayEvent",
             answering(0, [](S& s, Int out) { return s.handleDisplayEvent(1, 2, 3, out); })},
            {"present", answering(1, [](S& s, Int out) { return s.present(1, out); })},
            {"presentDisplay",
             answering(0, [](S& s, Int out) { return s.presentDisplay(1, out); })},
            {"reportDualChannelStatus", [](S& s) { return s.reportDualChannelStatus(1); }},
            {"setActiveConfig", [](S& s) { return s.setActiveConfig(1, {}); }},
            {"setClientTarget", [](S& s) { return s.setClientTarget(1, 2); }},
            {"setColorModeWithRenderIntent",
             answering(0,
                       [](S& s, Int out) { return s.setColorModeWithRenderIntent(1, 2, 3, out); })},
            {"setDisplayConnected", [](S& s) { return s.setDisplayConnected(1, true); }},
            {"setLayerBuffer", [](S& s) { return s.setLayerBuffer(1, 2, {}); }},
            {"setLayerCompositionType", [](S& s) { return s.setLayerCompositionType(1, 2, 3); }},
            {"setLayerDisplayFrame", [](S& s) { return s.setLayerDisplayFrame(1, 2, {}); }},
            {"setLayerProperty", [](S& s) { return s.setLayerProperty(1, 2, 3); }},
            {"setLayerSetEmpty", [](S& s) { return s.setLayerSetEmpty(1, true); }},
            {"setLayerSourceCrop", [](S& s) { return s.setLayerSourceCrop(1, 2, {}); }},
            {"setLayerTransform", [](S& s) { return s.setLayerTransform(1, 2, 3); }},
            {"setLayerZOrder", [](S& s) { return s.setLayerZOrder(1, 2, 3); }},
            {"setOsdAutoRefresh",
             answering(0, [](S& s, Int out) { return s.setOsdAutoRefresh(1, out); })},
            {"setPowerMode",
             answering(0, [](S& s, Int out) { return s.setPowerMode(1, 2, true, true, out); })},
            {"updateDisplayBrightness", resetting(Values({1, 2}), Values({-1}),
                                                  [](S& s, Values* out) {
                                                      return s.updateDisplayBrightness(1, 2, {3},
                                                                                       out);
                                                  })},
            {"setColorTransform",
             answering(0, [](S& s, Int out) { return s.setColorTransform({1.0F}, out); })},
            {"configureVelaHdrMode", [](S& s) { return s.configureVelaHdrMode(1); }},
    };
}

class RefusalTest : public ServiceTest, public testing::WithParamInterface<Refusal> {};

// The chip is strict: asking it anything fails the test.
TEST_P(RefusalTest, IsTheSameWithAndWithoutTheLibrary) {
    EXPECT_EQ(codesOf(GetParam().call(*mService)), serviceSpecific(-2));
    mService.reset();
    EXPECT_EQ(codesOf(GetParam().call(*makeDegraded())), serviceSpecific(-2));
}

INSTANTIATE_TEST_SUITE_P(All, RefusalTest, testing::ValuesIn(refusals()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
