#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "tests/support/Ask.h"

namespace vts {

namespace display = aidl::vendor::lumenforge::hardware::display;

using ndk::ScopedAStatus;
using ndk::SharedRefBase;
using vela::test::ask;
using vela::test::told;
using Values = std::vector<int32_t>;

/** The published service; every test needs it and has a thread pool for callbacks. */
class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ABinderProcess_startThreadPool();
        const std::string name = std::string(display::IVela::descriptor) + "/default";
        vela = display::IVela::fromBinder(
                ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
        ASSERT_NE(vela, nullptr) << name << " is not published";
    }

    template <typename Interface>
    static void expectFrozenVersion(Interface& object) {
        EXPECT_EQ("ok 2", ask(object, &Interface::getInterfaceVersion));
        EXPECT_EQ("ok \"" + Interface::hash + '"', ask(object, &Interface::getInterfaceHash));
        EXPECT_EQ(Interface::hash.size(), 40U);
    }

    std::shared_ptr<display::IVela> vela;
};

}  // namespace vts
