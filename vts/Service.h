#pragma once

#include <memory>
#include <string>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

namespace vts {

namespace display = aidl::vendor::lumenforge::hardware::display;

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

    /** The service-specific code of a status; fails the test for any other kind of status. */
    static int32_t serviceError(const ndk::ScopedAStatus& status) {
        EXPECT_EQ(status.getExceptionCode(), EX_SERVICE_SPECIFIC) << status.getDescription();
        return status.getServiceSpecificError();
    }

    std::shared_ptr<display::IVela> vela;
};

}  // namespace vts
