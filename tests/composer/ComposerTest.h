#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>

#include "composer/VelaComposerClient.h"
#include "tests/support/ChipTest.h"
#include "vts/Ask.h"

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

using display::VelaComposerClient;
using vela::test::ask;
using vela::test::told;
using vela::test::Values;

class MockComposerCallback : public display::BnVelaComposerCallback {
  public:
    MOCK_METHOD(ndk::ScopedAStatus, onConfigChanged, (int64_t, int32_t, const Values&, Values*),
                (override));
    MOCK_METHOD(ndk::ScopedAStatus, onRefreshRequested, (int64_t), (override));
    MOCK_METHOD(ndk::ScopedAStatus, onDisplayPowerChanged, (int64_t, int32_t), (override));
    MOCK_METHOD(ndk::ScopedAStatus, onContentSamplingRequested,
                (int64_t, int32_t, int64_t, display::ContentSamples*), (override));
};

/** A client on a chip that the test sees, and one that was started without a library. */
class ComposerTest : public vela::test::ChipTest {
  protected:
    static std::shared_ptr<VelaComposerClient> makeClient(lmfg::VelaService* service) {
        auto client = ndk::SharedRefBase::make<VelaComposerClient>();
        client->init(service);
        return client;
    }

    /** Asks both clients: the answer without the library, a slash, the answer with it. */
    template <typename Operation, typename... Arguments>
    std::string askBoth(Operation operation, const Arguments&... arguments) {
        const std::string absent = ask(*mAbsent, operation, arguments...);
        return absent + " / " + ask(*mClient, operation, arguments...);
    }

    lmfg::VelaService* const mService = lmfg::VelaService::init();
    std::shared_ptr<VelaComposerClient> mAbsent = makeClient(nullptr);
    std::shared_ptr<VelaComposerClient> mClient = makeClient(mService);
};
