#include "support/Buffer.h"

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "tests/support/MockChip.h"
#include "tests/support/SystemSpy.h"

namespace lmfg::support {
namespace {

using android::hardware::hidl_handle;
using testing::_;
using testing::Return;
using vela::test::SystemSpy;

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

class BufferTest : public testing::Test {
  protected:
    BufferTest() { installChip(mChip); }
    ~BufferTest() override { installChip(nullptr); }

    const std::shared_ptr<MockChip> mChip = std::make_shared<MockChip>();
};

TEST_F(BufferTest, ClosesTheDescriptorThatTheCallerGoesOnNaming) {
    ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
    const int number = fd.get();
    EXPECT_CALL(*mChip, velaConfigureBuffer(3, 0xFFFFFFFFFFFFFFFEu, _, 0xFFFFFFFFu))
            .WillOnce([&](int, uint64_t, const hidl_handle& handle, uint32_t) {
                EXPECT_EQ(handle->numFds, 1);
                EXPECT_EQ(handle->numInts, 0);
                EXPECT_EQ(handle->data[0], number);
                EXPECT_TRUE(isOpen(number));
                return 42;
            });
    const SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 3, -2, fd, -1), 42);
    EXPECT_FALSE(isOpen(number));
    EXPECT_EQ(fd.get(), number);
    EXPECT_TRUE(spy.syslogLines().empty());
    // The caller's own close is the second one.
    fd.set(-1);
    EXPECT_EQ(spy.syslogLines().size(), 1u);
}

TEST_F(BufferTest, NeverFreesTheHandleRecord) {
    const native_handle_t* kept = nullptr;
    EXPECT_CALL(*mChip, velaConfigureBuffer)
            .WillOnce([&](int, uint64_t, const hidl_handle& handle, uint32_t) {
                kept = handle.getNativeHandle();
                return -5;
            });
    ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
    const int number = fd.get();
    const SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 0, 0, fd, 0), -5);
    EXPECT_EQ(spy.handlesMade(), 1);
    EXPECT_EQ(spy.handlesDeleted(), 0);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->data[0], number);
    (void)fd.release();
}

TEST_F(BufferTest, PassesTheAbsenceOfADescriptorOn) {
    EXPECT_CALL(*mChip, velaConfigureBuffer)
            .WillOnce([&](int, uint64_t, const hidl_handle& handle, uint32_t) {
                return handle->data[0];
            });
    const SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 0, 0, ndk::ScopedFileDescriptor(), 0), -1);
    EXPECT_TRUE(spy.syslogLines().empty());
}

}  // namespace
}  // namespace lmfg::support
