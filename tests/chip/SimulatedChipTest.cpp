#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

VelaService::LayerStack stackOf(size_t layers) {
    VelaService::LayerStack stack;
    stack.layers.resize(layers);
    return stack;
}

TEST_F(SimulatedChipTest, DumpTellsTheWholeState) {
    mService->initialize(3, 720, 1600);
    mService->initSoftVela();
    mService->SetPowerMode(0x102);
    EXPECT_EQ(mService->SetColorModeWithRenderIntent(7, 1), 0);
    EXPECT_EQ(mService->SetColorTransform(std::vector<float>(16, 0.5f)), 0);
    EXPECT_EQ(mService->configureVelaMaxcll(1000), 0);
    EXPECT_EQ(mService->setOsdAutoRefresh(1), 0);
    mService->SetClientTarget(4);
    mService->reportDualChannelStatus(2);
    mService->SetPluggableDisplayConnected(true);
    mService->setFrameBufferResolution(1, 1920, 1080);
    mService->setPanelName(1, "outdoor");
    mService->SetLayerSetEmpty(2, true);
    mService->setLayerProperty(9, 10);
    mService->CreateLayer(42, 1);
    mService->ChangeLayerType(42, 2);
    mService->SetLayerCompositionType(42, 3);
    mService->SetLayerTransform(42, 4);
    mService->SetLayerZOrder(42, 5);
    mService->SetLayerDisplayFrame(42, {0, 1, 2, 3});
    mService->SetLayerSourceCrop(42, {-4, -3, -2, -1});
    mService->setLayerBuffer(1, 42, {.value1 = 77});
    mService->buildLayerStack(0, stackOf(2));
    EXPECT_EQ(mService->CommitLayerStack(0, true), 0);
    EXPECT_TRUE(mService->Present());
    EXPECT_EQ(mService->PresentDisplay(), 0);
    reply("osd 5 6; set 20 1 2");
    mService->DestroyLayer(43);

    EXPECT_EQ(dump(),
              "simulated chip\n"
              "initialized 1 times, soft processing started\n"
              "config 3 at 60 Hz, power 2 (flagged)\n"
              "color mode 7, intent 1, transform set, max content light 1000\n"
              "osd state 5, overflow 6, auto refresh 1\n"
              "client target 4, dual channel 2\n"
              "display 0 (primary): connected, 720x1600, brightness 0, panel \"simulated\"\n"
              "  stack: 2 layers, value 0; built 1, committed 1, presented 2\n"
              "display 1 (pluggable): connected, 1920x1080, brightness 0, panel \"outdoor\"\n"
              "  stack: 0 layers, value 0; built 0, committed 0, presented 0\n"
              "  layer 42: z 5, type 2, composition 3, transform 4, frame [0,1,2,3], "
              "crop [-4,-3,-2,-1], buffer 77 (update 1)\n"
              "display 2 (virtual): disconnected, empty, 0x0, brightness 0, panel \"\"\n"
              "  stack: 0 layers, value 0; built 0, committed 0, presented 0\n"
              "display 3 (secondary): disconnected, 0x0, brightness 0, panel \"\"\n"
              "  stack: 0 layers, value 0; built 0, committed 0, presented 0\n"
              "property 9: 10\n"
              "register 20: [1,2]\n"
              "batches 1, events raised 0\n"
              "refusals 1\n"
              "refused DestroyLayer 43: EINVAL\n");
    EXPECT_THAT(dump(1), HasSubstr("layer 42"));
    EXPECT_THAT(dump(1), Not(HasSubstr("display 0")));
    EXPECT_EQ(dump(4), "unknown display 4\n");
    EXPECT_EQ(dump(~0ull), "unknown display 18446744073709551615\n");

    VelaService::VelaFixedConfig config;
    mService->getCurrentConfig([&](int32_t status, const auto& it) {
        EXPECT_EQ(status, 0);
        config = it;
    });
    EXPECT_EQ(config.value1, 3);
    EXPECT_EQ(config.value2, 720);
    EXPECT_EQ(config.value3, 1600);
    EXPECT_EQ(config.value5, 0x102);
    EXPECT_THAT(config.list1, ElementsAre(0, 1));
    EXPECT_THAT(config.list2, ElementsAre(20));
}

TEST_F(SimulatedChipTest, ResultsOfNonsenseAreNegative) {
    struct {
        const char* name;
        int result;
        int expected;
    } const cases[] = {
            {"commit, no display", mService->CommitLayerStack(4, false), -EINVAL},
            {"commit, negative display", mService->CommitLayerStack(-1, false), -EINVAL},
            {"commit before build", mService->CommitLayerStack(1, false), -ENODATA},
            {"present before commit", mService->PresentDisplay(), -ENODATA},
            {"color mode", mService->SetColorModeWithRenderIntent(-1, 0), -EINVAL},
            {"render intent", mService->SetColorModeWithRenderIntent(0, 256), -EINVAL},
            {"short transform", mService->SetColorTransform({1, 2}), -EINVAL},
            {"no transform", mService->SetColorTransform({}), -EINVAL},
            {"not a number", mService->SetColorTransform(std::vector<float>(16, NAN)), -EINVAL},
            {"light", mService->configureVelaMaxcll(10001), -ERANGE},
            {"negative light", mService->configureVelaMaxcll(-1), -ERANGE},
            {"event", mService->handleDisplayEvent(0, 3, 0), -EOPNOTSUPP},
            {"event, no display", mService->handleDisplayEvent(1ull << 32, 0, 0), -EINVAL},
            {"auto refresh", mService->setOsdAutoRefresh(2), -EINVAL},
    };
    for (const auto& it : cases)
        EXPECT_EQ(it.result, it.expected) << it.name;
    EXPECT_FALSE(mService->Present());
    EXPECT_FALSE(mService->Present2nd());
    EXPECT_THAT(dump(), HasSubstr("refused Present2nd: ENODEV\n"));
}

TEST_F(SimulatedChipTest, RefusalsWithoutResultChangeNothingButTheDump) {
    mService->CreateLayer(1, 0);
    const std::string before = dump();
    mService->initialize(1, 0, 1);
    mService->initialize(1, 1, 16385);
    mService->CreateLayer(1, 1);
    mService->CreateLayer(2, 4);
    mService->CreateLayer(2, -1);
    mService->SetLayerZOrder(2, 1);
    mService->SetLayerTransform(1, 8);
    mService->SetLayerTransform(1, -1);
    mService->SetLayerDisplayFrame(1, {2, 0, 1, 0});
    mService->SetLayerSourceCrop(1, {0, 1, 0, 0});
    mService->setLayerBuffer(1, 1, {});
    mService->SetLayerSetEmpty(-1, true);
    mService->buildLayerStack(4, stackOf(1));
    mService->buildLayerStack(0, stackOf(1025));
    mService->setActiveConfig({.value1 = -1, .value2 = 5});
    mService->SetPowerMode(6);
    mService->SetPowerMode(-1);
    mService->setFrameBufferResolution(0, 0, 5);
    mService->setFrameBufferResolution(4, 5, 5);
    mService->setPanelName(0, std::string(256, 'n'));
    mService->setPanelName(9, "n");
    const std::string after = dump();
    EXPECT_THAT(after, HasSubstr("refusals 21\n"));
    const auto state = [](const std::string& text) {
        return text.substr(0, text.find("refusals"));
    };
    EXPECT_EQ(state(after), state(before));
}

TEST_F(SimulatedChipTest, BrightnessAnswersTheLevelBefore) {
    const auto update = [this](uint64_t display, int level, size_t count = 0) {
        Answer<std::vector<int>> answer;
        mService->updateDisplayBrightness(display, level, std::vector<int>(count),
                                          [&](int32_t status, const auto& values) {
                                              answer = {status, values};
                                          });
        answer.value.insert(answer.value.begin(), answer.status);
        return answer.value;
    };
    EXPECT_THAT(update(0, 4095), ElementsAre(0, 0));
    EXPECT_THAT(update(0, 10, 64), ElementsAre(0, 4095));
    EXPECT_THAT(update(0, 4096), ElementsAre(-ERANGE, 10));
    EXPECT_THAT(update(0, -1), ElementsAre(-ERANGE, 10));
    EXPECT_THAT(update(0, 1, 65), ElementsAre(-E2BIG, 10));
    EXPECT_THAT(update(4, 1), ElementsAre(-EINVAL));
}

TEST_F(SimulatedChipTest, SecondaryDisplayPresentsOnItsOwn) {
    mService->buildLayerStack(3, stackOf(1));
    EXPECT_EQ(mService->CommitLayerStack(3, false), 0);
    EXPECT_FALSE(mService->Present2nd()) << "not connected";
    mService->enableSecondaryDisplay(true);
    EXPECT_TRUE(mService->Present2nd());
    EXPECT_FALSE(mService->Present());
}

class FramesTest : public SimulatedChipTest {
  protected:
    FramesTest() : SimulatedChipTest(kDir) { std::filesystem::create_directories(kDir); }
    ~FramesTest() override { std::filesystem::remove_all(kDir); }

    static inline const std::string kDir =
            ::testing::TempDir() + "frames-" + std::to_string(getpid());
};

TEST_F(FramesTest, EachPresentationIsDescribed) {
    mService->CreateLayer(~0ull, 0);
    mService->SetLayerDisplayFrame(~0ull, {1, 2, 3, 4});
    mService->CreateLayer(5, 1);
    VelaService::LayerStack stack = stackOf(1);
    stack.layers[0].layerRect.right = 2.5f;
    stack.layers[0].value2 = 255;
    mService->buildLayerStack(0, stack);
    mService->CommitLayerStack(0, false);
    ASSERT_TRUE(mService->Present());
    ASSERT_TRUE(mService->Present());

    EXPECT_FALSE(nlohmann::json::accept(std::ifstream(kDir + "/frame-000003.json")));
    const auto frame = nlohmann::json::parse(std::ifstream(kDir + "/frame-000002.json"));
    EXPECT_EQ(frame["frame"], 2);
    EXPECT_EQ(frame["display"], 0);
    EXPECT_EQ(frame["stack"]["layers"][0]["rect"], (std::vector<float>{0, 0, 2.5f, 0}));
    EXPECT_EQ(frame["stack"]["layers"][0]["value2"], 255);
    ASSERT_EQ(frame["layers"].size(), 1u) << "layers of other displays are left out";
    EXPECT_EQ(frame["layers"][0]["layer"], ~0ull);
    EXPECT_EQ(frame["layers"][0]["displayFrame"], (std::vector<int>{1, 2, 3, 4}));
    EXPECT_TRUE(frame["layers"][0]["buffer"].is_null());

    std::filesystem::remove_all(kDir);
    EXPECT_TRUE(mService->Present()) << "the panel shows the frame all the same";
    EXPECT_THAT(dump(), HasSubstr("refused to write " + kDir + "/frame-000003.json: EIO\n"));
}

}  // namespace
}  // namespace lmfg
