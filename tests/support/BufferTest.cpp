#include "support/Buffer.h"

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/ChipTest.h"
#include "tests/support/SystemSpy.h"

namespace lmfg::support {
namespace {

/** Keeps what it is handed, as no chip may. */
struct KeepingChip : SimulatedChip {
    int velaConfigureBuffer(int, uint64_t, const hidl_handle& handle, uint32_t) override {
        kept = handle.getNativeHandle();
        EXPECT_EQ(kept->numFds, 1);
        EXPECT_EQ(kept->numInts, 0);
        isOpen = fcntl(kept->data[0], F_GETFD) != -1;
        return -5;
    }

    const native_handle_t* kept = nullptr;
    bool isOpen = false;
};

TEST(BufferTest, ClosesTheDescriptorThatTheCallerGoesOnNamingAndKeepsTheHandle) {
    const auto chip = std::make_shared<KeepingChip>();
    installChip(chip);
    ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
    const int number = fd.get();
    const vela::test::SystemSpy spy;
    EXPECT_EQ(configureBuffer(VelaService::init(), 3, -2, fd, -1), -5);
    EXPECT_TRUE(chip->isOpen);
    EXPECT_EQ(chip->kept->data[0], number);
    EXPECT_EQ(spy.handlesDeleted(), 0);
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
    EXPECT_EQ(fd.get(), number);
    EXPECT_TRUE(spy.syslogLines().empty());
    fd.set(-1);
    EXPECT_EQ(spy.syslogLines().size(), 1u) << "the caller's own close is the second one";

    EXPECT_EQ(configureBuffer(VelaService::init(), 0, 0, fd, 0), -5);
    EXPECT_EQ(chip->kept->data[0], -1);
    EXPECT_EQ(spy.syslogLines().size(), 1u) << "there is nothing to close";
    installChip(nullptr);
}

}  // namespace
}  // namespace lmfg::support
