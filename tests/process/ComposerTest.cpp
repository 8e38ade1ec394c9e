#include <unistd.h>

#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>
#include <gmock/gmock.h>

#include "tests/process/HostTest.h"
#include "tests/support/ProcessHarness.h"

namespace process_test {
namespace {

using ndk::ScopedAStatus;
using ndk::SharedRefBase;
using testing::ElementsAre;
using testing::HasSubstr;

/** A compositor: notes each event, answers it, and may call the service while it does. */
class Compositor : public display::BnVelaComposerCallback {
  public:
    ScopedAStatus onConfigChanged(int64_t shown, int32_t config, const Values& values,
                                  Values* result) override {
        events.put("config " + std::to_string(shown) + " " + std::to_string(config));
        *result = values;
        result->push_back(99);
        if (client != nullptr) {
            std::string text;
            EXPECT_TRUE(client->getDumpString(shown, &text).isOk());
            EXPECT_FALSE(text.empty());
        }
        return fails ? ScopedAStatus::fromServiceSpecificError(-5) : ScopedAStatus::ok();
    }

    ScopedAStatus onRefreshRequested(int64_t shown) override {
        events.put("refresh " + std::to_string(shown));
        return ScopedAStatus::ok();
    }

    ScopedAStatus onDisplayPowerChanged(int64_t shown, int32_t mode) override {
        events.put("power " + std::to_string(shown) + " " + std::to_string(mode));
        return ScopedAStatus::ok();
    }

    ScopedAStatus onContentSamplingRequested(int64_t shown, int32_t first, int64_t second,
                                             display::ContentSamples* samples) override {
        events.put("sample " + std::to_string(shown));
        samples->value1 = first;
        samples->list2 = {second};
        return ScopedAStatus::ok();
    }

    Mailbox<std::string> events;
    std::shared_ptr<display::IVelaComposerClient> client;
    bool fails = false;
};

std::shared_ptr<display::IVelaComposerClient> makeClient(
        const std::shared_ptr<display::IVela>& vela) {
    std::shared_ptr<display::IVelaComposerClient> client;
    EXPECT_TRUE(vela->createComposerClient(&client).isOk());
    return client;
}

std::shared_ptr<Compositor> makeCompositor(
        const std::shared_ptr<display::IVelaComposerClient>& client) {
    auto compositor = SharedRefBase::make<Compositor>();
    EXPECT_TRUE(client->registerCallback(compositor).isOk());
    return compositor;
}

void createLayers(const std::shared_ptr<display::IVelaComposerClient>& client) {
    for (const int64_t layer : {1, 2}) {
        EXPECT_TRUE(client->createLayer(0, layer).isOk());
        EXPECT_TRUE(client->setLayerZOrder(0, layer, static_cast<int32_t>(layer)).isOk());
        EXPECT_TRUE(client->setLayerDisplayFrame(0, layer, {0, 0, 1080, 2400}).isOk());
        EXPECT_TRUE(client->setLayerSourceCrop(0, layer, {0, 0, 540, 1200}).isOk());
        EXPECT_TRUE(client->setLayerCompositionType(0, layer, 2).isOk());
    }
}

bool buildStack(const std::shared_ptr<display::IVelaComposerClient>& client) {
    display::LayerStack stack;
    stack.layers.resize(2);
    stack.list1 = {1, 2};
    return client->buildLayerStack(0, stack).isOk();
}

/** Builds, commits and presents a stack; whether it was shown. */
bool showFrame(const std::shared_ptr<display::IVelaComposerClient>& client) {
    int32_t committed = -1;
    int32_t presented = 0;
    return buildStack(client) && client->commitLayerStack(0, 1, &committed).isOk() &&
           client->present(0, &presented).isOk() && committed >= 0 && presented == 1;
}

/** A compositor that never answers to a change of the configuration. */
class MuteCompositor : public Compositor {
  public:
    ScopedAStatus onConfigChanged(int64_t, int32_t config, const Values&, Values*) override {
        events.put("asked " + std::to_string(config));
        for (;;)
            pause();
    }
};

/** A compositor's process: shows a frame, tells of one event, and begins a frame that it never
 * ends. */
const harness::Role kCompositor("compositor", [](harness::Parent& parent) {
    const auto client = makeClient(findService());
    const auto compositor = SharedRefBase::make<MuteCompositor>();
    EXPECT_TRUE(client->registerCallback(compositor).isOk());
    createLayers(client);
    parent.say(showFrame(client) ? "shown" : "not shown");
    parent.say(compositor->events.take().value_or("no event"));
    parent.say(buildStack(client) ? "built" : "not built");
    parent.say(compositor->events.take().value_or("no event"));
    parent.untilGone();
});

using ComposerTest = HostTest;

TEST_F(ComposerTest, DrivesAFrameAndHearsItsEvents) {
    const auto client = makeClient(vela);
    const auto compositor = makeCompositor(client);
    createLayers(client);
    EXPECT_TRUE(showFrame(client));
    batch("refresh 0; power 0 2");
    // One-way events of one callback come in order.
    EXPECT_EQ(compositor->events.take(), "refresh 0");
    EXPECT_EQ(compositor->events.take(), "power 0 2");
    EXPECT_THAT(batch("config 0 3 4; wait; last"), HasSubstr("[4,99]"));
    EXPECT_THAT(batch("sample 0 5 6; wait; last"), HasSubstr("[6]"));
}

TEST_F(ComposerTest, ServesCallsFromInsideACallbackAndKeepsAFailedOnesRefusal) {
    const auto client = makeClient(vela);
    const auto compositor = makeCompositor(client);
    compositor->client = client;
    EXPECT_THAT(batch("config 0 3 4; wait; last"), HasSubstr("[4,99]"));
    // Between processes an error carries no values: the chip gets the empty answer.
    compositor->fails = true;
    EXPECT_THAT(batch("config 0 3 4; wait; last"), HasSubstr("-> []"));
    compositor->client = nullptr;
}

TEST_F(ComposerTest, ASecondCompositorTakesOverWhenTheFirstDiesInTheMiddleOfAFrame) {
    for (int i = 0; i < 2; ++i) {
        harness::Child compositor("compositor");
        ASSERT_EQ(compositor.hear(), "shown");
        batch("refresh 0");
        ASSERT_EQ(compositor.hear(), "refresh 0");
        ASSERT_EQ(compositor.hear(), "built");
        // The chip's thread is inside the call when the compositor dies.
        batch("config 0 1 2");
        ASSERT_EQ(compositor.hear(), "asked 1");
        compositor.kill();
        EXPECT_THAT(batch("wait; last"), HasSubstr("-> []"));
        awaitLog("Noticed AIDL death of IVelaComposerCallback");
    }
    std::string text;
    EXPECT_TRUE(makeClient(vela)->getDumpString(0, &text).isOk());
    EXPECT_THAT(text, HasSubstr("built 4, committed 2, presented 2"));
}

TEST_F(ComposerTest, TakesAStackOfManyLayersAndRefusesOneBeyondATransaction) {
    const auto client = makeClient(vela);
    display::LayerStack stack;
    stack.layers.resize(1000);
    EXPECT_TRUE(client->buildLayerStack(0, stack).isOk());
    stack.layers.resize(10'000);
    EXPECT_EQ(client->buildLayerStack(0, stack).getStatus(), STATUS_FAILED_TRANSACTION);
    EXPECT_TRUE(client->buildLayerStack(0, {}).isOk()) << "the connection has survived";
}

}  // namespace
}  // namespace process_test
