#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <gmock/gmock.h>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "service/VelaDefault.h"
#include "tests/support/ChipTest.h"
#include "vts/Ask.h"

namespace aidl::vendor::lumenforge::hardware::display {

using vela::test::ask;
using vela::test::told;
using vela::test::Values;

class MockCallback : public BnVelaCallback {
  public:
    MOCK_METHOD(ndk::ScopedAStatus, onFeatureChanged, (int32_t, const Values&), (override));
};

class MockSoftClient : public BnSoftVelaClient {
  public:
    MOCK_METHOD(ndk::ScopedAStatus, setConfig, (int64_t, int32_t, const Values&, int32_t*),
                (override));
    MOCK_METHOD(ndk::ScopedAStatus, getConfig, (int64_t, int32_t, const Values&, Values*),
                (override));
};

template <typename Mock>
std::shared_ptr<testing::NiceMock<Mock>> makeClient() {
    return ndk::SharedRefBase::make<testing::NiceMock<Mock>>();
}

/** A main service on a chip that the test sees, and one that found no library. */
class ServiceTest : public vela::test::ChipTest {
  protected:
    ServiceTest() {
        lmfg::installChip(nullptr);
        mDegraded = ndk::SharedRefBase::make<VelaDefault>();
        lmfg::installChip(mChip);
        mService = ndk::SharedRefBase::make<VelaDefault>();
    }

    std::shared_ptr<VelaDefault> mDegraded;
    std::shared_ptr<VelaDefault> mService;
};

}  // namespace aidl::vendor::lumenforge::hardware::display
