#include "tests/service/ServiceTest.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using vela::test::shown;
using V = VelaDefault;

/** Asks a service each operation that only composer clients serve and that has an answer. */
void expectRefusals(V& service) {
    const std::pair<std::string, std::string> kAnswers[] = {
            {"-2 0", ask(service, &V::commitLayerStack)},
            {"-2 0", ask(service, &V::configureVelaMaxcll)},
            {"-2 " + shown(VelaFixedConfig()), ask(service, &V::getCurrentConfig)},
            {"-2 \"\"", ask(service, &V::getDumpString)},
            {"-2 " + shown(LutData()), ask(service, &V::getLayerToneMappingLut)},
            {"-2 0", ask(service, &V::getOsdStatus)},
            {"-2 0", ask(service, &V::handleDisplayEvent)},
            {"-2 1", ask(service, &V::present)},
            {"-2 0", ask(service, &V::presentDisplay)},
            {"-2 0", ask(service, &V::setColorModeWithRenderIntent)},
            {"-2 0", ask(service, &V::setOsdAutoRefresh)},
            {"-2 0", ask(service, &V::setPowerMode)},
            {"-2 { -1 }", ask(service, &V::updateDisplayBrightness)},
            {"-2 0", ask(service, &V::setColorTransform)},
    };
    for (size_t i = 0; i < std::size(kAnswers); ++i)
        EXPECT_EQ(kAnswers[i].first, kAnswers[i].second) << "number " << i;
}

using RefusalsTest = ServiceTest;

// The chip is strict: asking it anything fails the test.
TEST_F(RefusalsTest, AreTheSameWithAndWithoutTheLibrary) {
    expectRefusals(*mService);
    expectRefusals(*mDegraded);
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
