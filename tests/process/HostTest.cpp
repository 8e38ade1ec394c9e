#include "tests/process/HostTest.h"

#include <signal.h>

#include <chrono>

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "tests/support/ProcessHarness.h"

namespace process_test {

std::shared_ptr<display::IVela> findService() {
    ABinderProcess_startThreadPool();
    const std::string name = std::string(display::IVela::descriptor) + "/default";
    return display::IVela::fromBinder(
            ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
}

void HostTest::SetUp() {
    startHost();
}

void HostTest::TearDown() {
    vela.reset();
    if (host == nullptr) return;
    host->sendSignal(SIGTERM);
    EXPECT_EQ(host->wait(), 0) << host->errors();
}

void HostTest::startHost() {
    host = std::make_unique<Program>("velahost", std::vector<std::string>{});
    mLogSeen = 0;
    ASSERT_TRUE(host->readLine().has_value()) << host->errors();
    vela = findService();
    ASSERT_NE(vela, nullptr);
}

void HostTest::killHost() {
    host->sendSignal(SIGKILL);
    EXPECT_EQ(host->wait(), -SIGKILL);
    host.reset();
}

std::string HostTest::batch(const std::string& text) {
    std::string reply;
    const ndk::ScopedAStatus status = vela->velaConfigureBatch(0, text, &reply);
    EXPECT_TRUE(status.isOk()) << status.getDescription();
    return reply;
}

void HostTest::await(const char* what, const std::function<bool()>& isSo) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!isSo()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << what << '\n' << host->errors();
        // A round trip instead of a sleep: the host gets the processor.
        ASSERT_EQ(AIBinder_ping(vela->asBinder().get()), STATUS_OK);
    }
}

void HostTest::awaitLog(const std::string& text) {
    await(("no line in the log with: " + text).c_str(), [&] {
        const size_t found = host->errors().find(text, mLogSeen);
        if (found == std::string::npos) return false;
        mLogSeen = found + text.size();
        return true;
    });
}

}  // namespace process_test

int main(int argc, char** argv) {
    return harness::run(argc, argv);
}
