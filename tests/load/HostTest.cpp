#include "tests/load/HostTest.h"

#include <signal.h>

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "tests/support/ProcessHarness.h"

namespace load_test {

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

void HostTest::awaitLog(const std::string& text) {
    size_t found = 0;
    EXPECT_TRUE(harness::eventually([&] {
        found = host->errors().find(text, mLogSeen);
        return found != std::string::npos;
    })) << "no line in the log with: "
        << text << '\n'
        << host->errors();
    mLogSeen = found + text.size();
}

}  // namespace load_test

int main(int argc, char** argv) {
    return harness::run(argc, argv);
}
