#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "tests/programs/Program.h"

namespace load_test {

namespace display = aidl::vendor::lumenforge::hardware::display;

/** The published service; waits for it. Starts the thread pool, for callbacks. */
std::shared_ptr<display::IVela> findService();

/**
 * A real service host with the simulated chip in a process of its own, and this process its client.
 */
class HostTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /** Starts the host and finds the service; fails the test when it does not come up. */
    void startHost();

    /** Kills the host and waits until its process is gone. */
    void killHost();

    /** Runs a batch of the simulated chip's language; its reply. */
    std::string batch(const std::string& text);

    /** Waits until the host's log has one more line with this text. */
    void awaitLog(const std::string& text);

    std::unique_ptr<Program> host;
    std::shared_ptr<display::IVela> vela;
    size_t mLogSeen = 0;
};

}  // namespace load_test
