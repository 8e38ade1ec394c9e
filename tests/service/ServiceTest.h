#pragma once

#include <memory>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "host/chip/ChipHost.h"
#include "host/chip/VelaServiceCallbacks.h"
#include "service/VelaDefault.h"
#include "tests/support/MockChip.h"

namespace aidl::vendor::lumenforge::hardware::display {

/** What no client can see: state that the library's presence, fixed for life, hides. */
struct VelaDefaultPeer {
    static auto& pendingBatches(VelaDefault& service) { return service.mPendingBatches; }
    static void setLibrary(VelaDefault& service, lmfg::VelaService* library) {
        service.mService = library;
    }
    static void setLogMask(VelaDefault& service, uint32_t mask) { service.mLogMask = mask; }
};

/** Two numbers that tell a status apart; -129 with -2147483648 is the unknown error. */
inline std::pair<int32_t, int32_t> codesOf(const ndk::ScopedAStatus& status) {
    return {status.getExceptionCode(), status.getExceptionCode() == EX_SERVICE_SPECIFIC
                                               ? status.getServiceSpecificError()
                                               : status.getStatus()};
}

inline std::pair<int32_t, int32_t> serviceSpecific(int32_t code) {
    return {EX_SERVICE_SPECIFIC, code};
}

inline constexpr std::pair<int32_t, int32_t> kOk = {EX_NONE, STATUS_OK};
inline constexpr std::pair<int32_t, int32_t> kUnknownError = {EX_TRANSACTION_FAILED,
                                                              STATUS_UNKNOWN_ERROR};

class MockCallback : public BnVelaCallback {
  public:
    MockCallback() {
        ON_CALL(*this, onFeatureChanged).WillByDefault([] { return ndk::ScopedAStatus::ok(); });
    }
    MOCK_METHOD(ndk::ScopedAStatus, onFeatureChanged, (int32_t, const std::vector<int32_t>&),
                (override));
};

class MockSoftClient : public BnSoftVelaClient {
  public:
    MockSoftClient() {
        ON_CALL(*this, setConfig).WillByDefault([] { return ndk::ScopedAStatus::ok(); });
        ON_CALL(*this, getConfig).WillByDefault([] { return ndk::ScopedAStatus::ok(); });
    }
    MOCK_METHOD(ndk::ScopedAStatus, setConfig,
                (int64_t, int32_t, const std::vector<int32_t>&, int32_t*), (override));
    MOCK_METHOD(ndk::ScopedAStatus, getConfig,
                (int64_t, int32_t, const std::vector<int32_t>&, std::vector<int32_t>*), (override));
};

template <typename Mock>
std::shared_ptr<testing::NiceMock<Mock>> makeClient() {
    return ndk::SharedRefBase::make<testing::NiceMock<Mock>>();
}

/** A main service on a chip that the test sees. */
class ServiceTest : public testing::Test {
  protected:
    ServiceTest() {
        lmfg::installChip(mChip);
        mService = ndk::SharedRefBase::make<VelaDefault>();
    }
    ~ServiceTest() override {
        mService.reset();
        lmfg::installChip(nullptr);
    }

    /** The library, as the source of events. */
    static lmfg::VelaServiceCallbacks library() {
        return lmfg::VelaServiceCallbacks(*lmfg::VelaService::init());
    }

    const std::shared_ptr<testing::StrictMock<lmfg::MockChip>> mChip =
            std::make_shared<testing::StrictMock<lmfg::MockChip>>();
    std::shared_ptr<VelaDefault> mService;
};

/** A main service that found no library. */
inline std::shared_ptr<VelaDefault> makeDegraded() {
    lmfg::installChip(nullptr);
    return ndk::SharedRefBase::make<VelaDefault>();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
