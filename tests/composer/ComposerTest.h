#pragma once

#include <memory>
#include <string>

#include "composer/VelaComposerClient.h"
#include "host/chip/LibraryCodec.h"
#include "tests/support/ChipTest.h"
#include "translate/AidlToHidl.h"

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

using vela::test::ask;
using vela::test::shown;
using vela::test::told;
using vela::test::untouched;
using vts::Values;
using C = display::VelaComposerClient;

// Beyond 32 bits: narrowed to an int it is 5.
constexpr int64_t kWide = 0x1'0000'0005;

/** A client on a chip that the test sees, and one that was started without a library. */
class ComposerTest : public vela::test::ChipTest {
  protected:
    static std::shared_ptr<C> makeClient(lmfg::VelaService* service) {
        auto client = ndk::SharedRefBase::make<C>();
        client->init(service);
        return client;
    }

    /** The answer without the library, then what the chip is asked with it, and the answer. */
    template <typename Operation, typename... Arguments>
    std::string both(Operation operation, const Arguments&... arguments) {
        const std::string absent = ask(*mAbsent, operation, arguments...);
        return absent + " / " + through(*mClient, operation, arguments...);
    }

    /** An operation without a result reaches the library so, and is always ok. */
    void forwards(const std::string& asks, auto operation, const auto&... arguments) {
        EXPECT_EQ("unknown / " + asks + " ok", both(operation, arguments...));
    }
    /** One with a result hands on the library's, which has to be -22. */
    void answers(const std::string& asks, auto operation, const auto&... arguments) {
        EXPECT_EQ("-1 77 / " + asks + " ok -22", both(operation, arguments...));
    }

    std::shared_ptr<vts::Compositor> add(C& client, const vts::Hear& hear) {
        auto callback = make<vts::Compositor>(hear);
        EXPECT_EQ("ok", told(client.registerCallback(callback)));
        return callback;
    }
    /** Raises all four events: what the library is told, then who hears what. */
    std::string raiseAll() {
        std::string told = shown(library().configChanged(kWide, -2, {3, 4}));
        library().refreshRequested(kWide);
        library().powerChanged(kWide, 9);
        return told + samples() + heard();
    }
    static std::string samples() {
        const auto samples = library().contentSampling(kWide, -11, INT64_MIN);
        return codec::Codec<lmfg::VelaContentSamples>::write(samples).dump();
    }
    /** What comes of raiseAll() without a callback, and with one of that name. */
    static constexpr char kNobody[] =
            R"({}{"value1":-1,"list1":[],"list2":[],"list3":[],"list4":[]})";
    static std::string reach(const std::string& name) {
        return R"({ 7 }{"value1":7,"list1":[1],"list2":[2,2],"list3":[3],"list4":[4]})" + name +
               "(4294967301 -2 { 3, 4 })" + name + "(4294967301)" + name + "(4294967301 9)" + name +
               "(4294967301 -11 -9223372036854775808)";
    }

    lmfg::VelaService* const mService = lmfg::VelaService::init();
    std::shared_ptr<C> mAbsent = makeClient(nullptr);
    std::shared_ptr<C> mClient = makeClient(mService);
};

/** As the library sees a record that is translated. */
template <typename Record>
std::string translated(const auto& in) {
    Record record;
    (void)lmfg::a2h::translate(in, &record);
    return codec::Codec<Record>::write(record).dump();
}
