#include "support/Buffer.h"

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/ChipTest.h"
#include "tests/support/SystemSpy.h"

namespace lmfg::support {
namespace {

using android::hardware::hidl_handle;
using testing::_;

using BufferTest = vela::test::ChipTest;

TEST_F(BufferTest, ClosesTheDescriptorThatTheCallerGoesOnNamingAndKeepsTheHandle) {
    ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
    const int number = fd.get();
    const native_handle_t* kept = nullptr;
    EXPECT_CALL(*mChip, velaConfigureBuffer(3, 0xFFFFFFFFFFFFFFFEu, _, 0xFFFFFFFFu))
            .WillOnce([&](int, uint64_t, const hidl_handle& handle, uint32_t) {
                EXPECT_EQ(handle->numFds, 1);
                EXPECT_EQ(handle->numInts, 0);
                EXPECT_NE(fcntl(number, F_GETFD), -1);
                kept = handle.getNativeHandle();
                return -5;
            });
    const vela::test::SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 3, -2, fd, -1), -5);
    EXPECT_EQ(spy.handlesDeleted(), 0);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->data[0], number);
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
    EXPECT_EQ(fd.get(), number);
    EXPECT_TRUE(spy.syslogLines().empty());
    fd.set(-1);
    EXPECT_EQ(spy.syslogLines().size(), 1u) << "the caller's own close is the second one";
}

TEST_F(BufferTest, PassesTheAbsenceOfADescriptorOn) {
    EXPECT_CALL(*mChip, velaConfigureBuffer)
            .WillOnce([&](int, uint64_t, const hidl_handle& handle, uint32_t) {
                return handle->data[0];
            });
    const vela::test::SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 0, 0, ndk::ScopedFileDescriptor(), 0), -1);
    EXPECT_TRUE(spy.syslogLines().empty());
}

}  // namespace
}  // namespace lmfg::support
