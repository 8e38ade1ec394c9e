#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <tuple>

#include <android/binder_auto_utils.h>
#include <android/log.h>
#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "host/chip/VelaServiceCallbacks.h"
#include "servicelib/VelaService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MockChip.h"

namespace vela::test {

using Values = std::vector<int32_t>;

/** A chip that accepts exactly the calls that a test expects. Clients' mocks answer ok. */
class ChipTest : public testing::Test {
  protected:
    ChipTest() {
        testing::DefaultValue<ndk::ScopedAStatus>::SetFactory(&ndk::ScopedAStatus::ok);
        lmfg::installChip(mChip);
    }
    ~ChipTest() override { lmfg::installChip(nullptr); }

    /** The library, as the source of events. */
    static lmfg::VelaServiceCallbacks library() {
        return lmfg::VelaServiceCallbacks(*lmfg::VelaService::init());
    }

    const std::shared_ptr<testing::StrictMock<lmfg::MockChip>> mChip =
            std::make_shared<testing::StrictMock<lmfg::MockChip>>();
};

/** Answers a request of the chip through its closure, once for each status. */
template <typename Value, typename... Statuses>
auto answering(Value value, Statuses... statuses) {
    return [=](const auto&... arguments) {
        const auto& result = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
        (result(statuses, value), ...);
        return lmfg::VelaService::Return<void>();
    };
}

/** A debug line of the product. */
template <typename... Arguments>
LogLine debugLine(const char* format, Arguments... arguments) {
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    return {ANDROID_LOG_DEBUG, text};
}

}  // namespace vela::test
