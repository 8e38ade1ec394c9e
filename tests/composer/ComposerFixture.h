#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>

#include "composer/VelaComposerClient.h"
#include "host/chip/ChipHost.h"
#include "host/chip/VelaServiceCallbacks.h"
#include "servicelib/VelaService.h"
#include "tests/support/MockChip.h"

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

// In a form that failures print well: "ok", "unknown", or the service-specific code.
inline std::string told(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return "ok";
    if (status.getExceptionCode() == EX_SERVICE_SPECIFIC) {
        return std::to_string(status.getServiceSpecificError());
    }
    return status.getStatus() == STATUS_UNKNOWN_ERROR ? "unknown" : status.getDescription();
}

class MockComposerCallback : public display::BnVelaComposerCallback {
  public:
    MOCK_METHOD(ndk::ScopedAStatus, onConfigChanged,
                (int64_t, int32_t, const std::vector<int32_t>&, std::vector<int32_t>*), (override));
    MOCK_METHOD(ndk::ScopedAStatus, onRefreshRequested, (int64_t), (override));
    MOCK_METHOD(ndk::ScopedAStatus, onDisplayPowerChanged, (int64_t, int32_t), (override));
    MOCK_METHOD(ndk::ScopedAStatus, onContentSamplingRequested,
                (int64_t, int32_t, int64_t, display::ContentSamples*), (override));
};

// A chip that accepts exactly the calls that a test expects, and a client on it.
class ComposerTest : public ::testing::Test {
  protected:
    ComposerTest() {
        lmfg::installChip(mChip);
        mService = lmfg::VelaService::init();
        mClient = makeClient(mService);
        mAbsent = makeClient(nullptr);
    }
    ~ComposerTest() override {
        mClient.reset();
        lmfg::installChip(nullptr);
    }

    static std::shared_ptr<display::VelaComposerClient> makeClient(lmfg::VelaService* service) {
        auto client = ndk::SharedRefBase::make<display::VelaComposerClient>();
        client->init(service);
        return client;
    }
    static std::shared_ptr<MockComposerCallback> makeCallback() {
        return ndk::SharedRefBase::make<::testing::StrictMock<MockComposerCallback>>();
    }

    lmfg::VelaServiceCallbacks events() const { return lmfg::VelaServiceCallbacks(*mService); }

    const std::shared_ptr<::testing::StrictMock<lmfg::MockChip>> mChip =
            std::make_shared<::testing::StrictMock<lmfg::MockChip>>();
    lmfg::VelaService* mService = nullptr;
    std::shared_ptr<display::VelaComposerClient> mClient;
    // A client that was started without a library.
    std::shared_ptr<display::VelaComposerClient> mAbsent;
};
