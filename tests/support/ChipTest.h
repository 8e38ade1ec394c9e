#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "host/chip/VelaServiceCallbacks.h"
#include "servicelib/VelaService.h"
#include "tests/support/LogCapture.h"
#include "vts/Clients.h"

namespace vela::test {

using lmfg::ChipFault;
using vts::Values;

/** Notes the requests that reach the chip, and has them answered as it is told to. One thread. */
struct ChipSpy : lmfg::ChipObserver {
    std::optional<ChipFault> fault(const lmfg::ChipCall&) override { return answer; }
    void began(const lmfg::ChipCall& call) override {
        if (!call.isEvent) asked += call.operation + call.arguments.dump() + ' ';
    }

    ChipFault answer;
    std::string asked;
};

/** A simulated chip that accepts only the requests that a test asks for. */
class ChipTest : public testing::Test {
  protected:
    ChipTest() { lmfg::installChip(mChip, {mSpy}); }
    ~ChipTest() override {
        EXPECT_EQ(mSpy->asked, "") << "nobody asked for it";
        lmfg::installChip(nullptr);
    }

    /** The library, as the source of events. */
    static lmfg::VelaServiceCallbacks library() {
        return lmfg::VelaServiceCallbacks(*lmfg::VelaService::init());
    }

    /** Each request that reached the chip since the last call, with its arguments, and a blank. */
    std::string asked() { return std::exchange(mSpy->asked, {}); }
    /** What the operation asked of the chip, then its answer: "PresentDisplay[] ok 0". */
    template <typename Object, typename Operation, typename... Arguments>
    std::string through(Object& object, Operation operation, const Arguments&... arguments) {
        const std::string answer = ask(object, operation, arguments...);
        return asked() + answer;
    }
    /** From now on the chip answers so. */
    void answerWith(ChipFault answer) { mSpy->answer = answer; }

    /** A client that is one of another process to the product, since its binder lives. */
    template <typename Client>
    std::shared_ptr<Client> make(vts::Hear hear = vts::ignore) {
        auto client = ndk::SharedRefBase::make<Client>(std::move(hear));
        mBinders.push_back(client->asBinder());
        return client;
    }
    /** What a client does that is heard(): it notes its name and the arguments, and answers so. */
    vts::Hear hear(const std::string& name,
                   std::function<ndk::ScopedAStatus()> answer = &ndk::ScopedAStatus::ok) {
        return [this, name, answer = std::move(answer)](const std::string& arguments) {
            mHeard += name + '(' + arguments + ')';
            return answer();
        };
    }
    std::string heard() { return std::exchange(mHeard, {}); }
    /** Whether only the test and its own binder hold the client. */
    static bool isForgotten(const auto& client) { return client.use_count() == 2; }

    const std::shared_ptr<lmfg::Chip> mChip = std::make_shared<lmfg::SimulatedChip>();
    const std::shared_ptr<ChipSpy> mSpy = std::make_shared<ChipSpy>();
    std::vector<ndk::SpAIBinder> mBinders;
    std::string mHeard;
};

/** A debug line of the product. */
template <typename... Arguments>
LogLine debugLine(const char* format, Arguments... arguments) {
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    return {ANDROID_LOG_DEBUG, text};
}

}  // namespace vela::test
