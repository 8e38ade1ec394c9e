#include <android/binder_process.h>
#include <gtest/gtest.h>

#include "binder_host/ServiceManager.h"
#include "tests/support/ProcessHarness.h"

namespace {

/** The service manager has to outlive the tests' children: it is hosted here. */
class Host : public testing::Environment {
  public:
    void SetUp() override {
        EXPECT_EQ(binder::startServiceManager(), binder::ServiceManagerHost::kThisProcess);
        ABinderProcess_startThreadPool();
    }
};

}  // namespace

int main(int argc, char** argv) {
    testing::AddGlobalTestEnvironment(new Host);
    return harness::run(argc, argv);
}
