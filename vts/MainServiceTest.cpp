#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "vts/Service.h"

namespace vts {
namespace {

using I = display::IVela;
using MainServiceTest = ServiceTest;

struct Callback : display::BnVelaCallback {
    ScopedAStatus onFeatureChanged(int32_t, const Values&) override { return ScopedAStatus::ok(); }
};

struct SoftClient : display::BnSoftVelaClient {
    ScopedAStatus setConfig(int64_t, int32_t, const Values&, int32_t* out) override {
        *out = 0;
        return ScopedAStatus::ok();
    }
    ScopedAStatus getConfig(int64_t, int32_t, const Values&, Values* out) override {
        out->clear();
        return ScopedAStatus::ok();
    }
};

TEST_F(MainServiceTest, IsTheFrozenVersion) {
    expectFrozenVersion(*vela);
}

TEST_F(MainServiceTest, StartsForADisplayMoreThanOnce) {
    display::DisplayConfigVariableInfo info;
    info.value4 = 3;
    info.value1 = 1080;
    info.value2 = 2400;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ("ok", told(vela->initialize(info)));
}

TEST_F(MainServiceTest, RegistersReplacesAndUnregisters) {
    const auto callback = SharedRefBase::make<Callback>();
    const auto client = SharedRefBase::make<SoftClient>();
    using Limits = std::numeric_limits<int64_t>;
    for (const int64_t id : {Limits::min(), int64_t{-1}, int64_t{0}, Limits::max()}) {
        EXPECT_EQ("ok", told(vela->registerCallback(id, nullptr))) << "unknown, " << id;
        EXPECT_EQ("ok", told(vela->registerCallback(id, callback))) << id;
        EXPECT_EQ("ok", told(vela->registerSoftVelaClient(id, client))) << "both kinds, " << id;
        EXPECT_EQ("ok", told(vela->registerCallback(id, SharedRefBase::make<Callback>()))) << id;
        EXPECT_EQ("ok", told(vela->registerCallback(id, nullptr))) << id;
        EXPECT_EQ("ok", told(vela->registerSoftVelaClient(id, nullptr))) << id;
    }
}

TEST_F(MainServiceTest, AnswersConfigurationRequestsOrSaysWhyNot) {
    EXPECT_EQ("ok", ask(*vela, &I::velaConfigureSet, 1).substr(0, 2));
    for (const std::string& answer :
         {ask(*vela, &I::velaConfigureGet, 1), ask(*vela, &I::velaConfigureBatch, 1, ""),
          ask(*vela, &I::panelReadWrite, true, 300, -1, false)}) {
        EXPECT_TRUE(answer.starts_with("ok ") || answer.starts_with("-")) << answer;
    }
}

TEST_F(MainServiceTest, TakesABuffer) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    const ndk::ScopedFileDescriptor fd(::dup(::fileno(file)));
    std::fclose(file);
    int32_t code = 0;
    EXPECT_EQ("ok", told(vela->velaConfigureBuffer(1, -1, fd, 16, &code)));
    EXPECT_NE(::fcntl(fd.get(), F_GETFD), -1) << "the caller's own descriptor stays open";
}

// An error carries no value across processes: what the proxy's caller held stays.
TEST_F(MainServiceTest, RefusesWhatOnlyComposerClientsServe) {
    const std::string answers[] = {
            ask(*vela, &I::buildLayerStack),
            ask(*vela, &I::changeLayerType),
            ask(*vela, &I::commitLayerStack),
            ask(*vela, &I::configureVelaMaxcll),
            ask(*vela, &I::createLayer),
            ask(*vela, &I::destroyLayer),
            ask(*vela, &I::enableSecondaryDisplay),
            ask(*vela, &I::getCurrentConfig),
            ask(*vela, &I::getDumpString),
            ask(*vela, &I::getLayerToneMappingLut),
            ask(*vela, &I::getOsdStatus),
            ask(*vela, &I::handleDisplayEvent),
            ask(*vela, &I::present),
            ask(*vela, &I::presentDisplay),
            ask(*vela, &I::reportDualChannelStatus),
            ask(*vela, &I::setActiveConfig),
            ask(*vela, &I::setClientTarget),
            ask(*vela, &I::setColorModeWithRenderIntent),
            ask(*vela, &I::setDisplayConnected),
            ask(*vela, &I::setLayerBuffer),
            ask(*vela, &I::setLayerCompositionType),
            ask(*vela, &I::setLayerDisplayFrame),
            ask(*vela, &I::setLayerProperty),
            ask(*vela, &I::setLayerSetEmpty),
            ask(*vela, &I::setLayerSourceCrop),
            ask(*vela, &I::setLayerTransform),
            ask(*vela, &I::setLayerZOrder),
            ask(*vela, &I::setOsdAutoRefresh),
            ask(*vela, &I::setPowerMode),
            ask(*vela, &I::updateDisplayBrightness),
            ask(*vela, &I::setColorTransform),
            ask(*vela, &I::configureVelaHdrMode),
    };
    for (size_t i = 0; i < std::size(answers); ++i)
        EXPECT_EQ("-2", answers[i].substr(0, answers[i].find(' '))) << i;
}

TEST_F(MainServiceTest, DumpsToADescriptor) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(AIBinder_dump(vela->asBinder().get(), ::fileno(file), nullptr, 0), STATUS_OK);
    std::fclose(file);
    EXPECT_EQ(AIBinder_ping(vela->asBinder().get()), STATUS_OK);
}

}  // namespace
}  // namespace vts
