#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "vts/Service.h"

namespace vts {
namespace {

using display::IVela;
using ndk::ScopedAStatus;
using ndk::SharedRefBase;

class MainServiceTest : public ServiceTest {};

struct Callback : display::BnVelaCallback {
    ScopedAStatus onFeatureChanged(int32_t, const std::vector<int32_t>&) override {
        return ScopedAStatus::ok();
    }
};

struct SoftClient : display::BnSoftVelaClient {
    ScopedAStatus setConfig(int64_t, int32_t, const std::vector<int32_t>&,
                            int32_t* result) override {
        *result = 0;
        return ScopedAStatus::ok();
    }
    ScopedAStatus getConfig(int64_t, int32_t, const std::vector<int32_t>&,
                            std::vector<int32_t>* result) override {
        result->clear();
        return ScopedAStatus::ok();
    }
};

TEST_F(MainServiceTest, isTheFrozenVersion) {
    int32_t version = 0;
    ASSERT_TRUE(vela->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 2);
    std::string hash;
    ASSERT_TRUE(vela->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(hash, IVela::hash);
    EXPECT_EQ(hash.size(), 40U);
}

TEST_F(MainServiceTest, startsForADisplayMoreThanOnce) {
    display::DisplayConfigVariableInfo info;
    info.value4 = 3;
    info.value1 = 1080;
    info.value2 = 2400;
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(vela->initialize(info).isOk());
}

TEST_F(MainServiceTest, registersReplacesAndUnregisters) {
    const auto callback = SharedRefBase::make<Callback>();
    const auto client = SharedRefBase::make<SoftClient>();
    for (const int64_t id : {std::numeric_limits<int64_t>::min(), int64_t{-1}, int64_t{0},
                             std::numeric_limits<int64_t>::max()}) {
        EXPECT_TRUE(vela->registerCallback(id, nullptr).isOk()) << "unknown, " << id;
        EXPECT_TRUE(vela->registerCallback(id, callback).isOk()) << id;
        EXPECT_TRUE(vela->registerSoftVelaClient(id, client).isOk()) << "both kinds, " << id;
        EXPECT_TRUE(vela->registerCallback(id, SharedRefBase::make<Callback>()).isOk()) << id;
        EXPECT_TRUE(vela->registerCallback(id, nullptr).isOk()) << id;
        EXPECT_TRUE(vela->registerSoftVelaClient(id, nullptr).isOk()) << id;
    }
}

TEST_F(MainServiceTest, answersConfigurationRequestsOrSaysWhyNot) {
    int32_t code = 0;
    EXPECT_TRUE(vela->velaConfigureSet(1, {}, &code).isOk());

    std::vector<int32_t> values;
    if (const auto status = vela->velaConfigureGet(1, {}, &values); !status.isOk()) {
        EXPECT_LT(serviceError(status), 0);
    }
    std::string reply;
    if (const auto status = vela->velaConfigureBatch(1, "", &reply); !status.isOk()) {
        EXPECT_LT(serviceError(status), 0);
    }
    std::vector<uint8_t> bytes;
    if (const auto status = vela->panelReadWrite(true, 300, -1, false, {}, 1, &bytes);
        !status.isOk()) {
        EXPECT_LT(serviceError(status), 0);
    }
}

TEST_F(MainServiceTest, takesABuffer) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    const ndk::ScopedFileDescriptor fd(::dup(::fileno(file)));
    std::fclose(file);
    int32_t code = 0;
    EXPECT_TRUE(vela->velaConfigureBuffer(1, -1, fd, 16, &code).isOk());
    EXPECT_NE(::fcntl(fd.get(), F_GETFD), -1) << "the caller's own descriptor stays open";
}

TEST_F(MainServiceTest, refusesWhatOnlyComposerClientsServe) {
    int32_t number = 0;
    std::string text;
    std::vector<int32_t> list;
    display::VelaFixedConfig config;
    display::LutData lut;
    const std::function<ScopedAStatus()> calls[] = {
            [&] { return vela->buildLayerStack(0, {}); },
            [&] { return vela->commitLayerStack(0, 1, &number); },
            [&] { return vela->configureVelaHdrMode(0); },
            [&] { return vela->configureVelaMaxcll(0, &number); },
            [&] { return vela->createLayer(0, 1); },
            [&] { return vela->getCurrentConfig(0, &config); },
            [&] { return vela->getDumpString(0, &text); },
            [&] { return vela->getLayerToneMappingLut(0, 0, &lut); },
            [&] { return vela->present(0, &number); },
            [&] { return vela->presentDisplay(0, &number); },
            [&] { return vela->setColorTransform({}, &number); },
            [&] { return vela->setDisplayConnected(1, true); },
            [&] { return vela->updateDisplayBrightness(0, 1, {}, &list); },
    };
    for (size_t i = 0; i < std::size(calls); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(serviceError(calls[i]()), -2);
    }
}

TEST_F(MainServiceTest, dumpsToADescriptor) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(AIBinder_dump(vela->asBinder().get(), ::fileno(file), nullptr, 0), STATUS_OK);
    std::fclose(file);
    EXPECT_EQ(AIBinder_ping(vela->asBinder().get()), STATUS_OK);
}

}  // namespace
}  // namespace vts
