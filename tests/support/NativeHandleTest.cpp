#include "support/NativeHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include <gmock/gmock.h>

#include "tests/support/SystemSpy.h"

namespace android {
namespace {

using aidl::android::hardware::common::NativeHandle;
using testing::ElementsAre;
using vela::test::SystemSpy;

int openDescriptor() {
    const int fd = open("/dev/null", O_RDONLY);
    EXPECT_GE(fd, 0);
    return fd;
}

/** A number that names nothing. */
int closedDescriptor() {
    const int fd = openDescriptor();
    close(fd);
    return fd;
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

bool closesOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

NativeHandle recordOf(const std::vector<int>& fds, std::vector<int32_t> ints = {}) {
    NativeHandle record;
    for (const int fd : fds)
        record.fds.emplace_back(fd);
    record.ints = std::move(ints);
    return record;
}

SystemSpy::Line couldNotClose(int fd) {
    return {LOG_ERR,
            "Could not close FD " + std::to_string(fd) + ": " + std::string(strerror(EBADF))};
}

TEST(NativeHandleTest, EmptyMeansNeitherDescriptorsNorIntegers) {
    EXPECT_TRUE(isAidlNativeHandleEmpty({}));
    EXPECT_FALSE(isAidlNativeHandleEmpty(recordOf({-1})));
    EXPECT_FALSE(isAidlNativeHandleEmpty(recordOf({}, {0})));

    native_handle_t* handle = makeFromAidl({});
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->numFds, 0);
    EXPECT_EQ(handle->numInts, 0);
    native_handle_delete(handle);
}

TEST(NativeHandleTest, MakeFromAidlCopiesNumbersWhichStayTheRecords) {
    const int first = openDescriptor();
    const int second = openDescriptor();
    NativeHandle record = recordOf({first, -1, second}, {10, -20});
    native_handle_t* handle = makeFromAidl(record);
    ASSERT_NE(handle, nullptr);
    ASSERT_EQ(handle->numFds, 3);
    ASSERT_EQ(handle->numInts, 2);
    EXPECT_THAT(std::vector<int>(handle->data, handle->data + 5),
                ElementsAre(first, -1, second, 10, -20));

    release(&record);
    EXPECT_FALSE(isOpen(first));
    EXPECT_FALSE(isOpen(second));
    native_handle_delete(handle);
}

TEST(NativeHandleTest, DupFromAidlDuplicatesAndPutsMinusOneForAFailure) {
    const int first = openDescriptor();
    const int last = openDescriptor();
    NativeHandle record = recordOf({first, -1, last}, {5});
    native_handle_t* handle = dupFromAidl(record);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->data[1], -1);
    EXPECT_EQ(handle->data[3], 5);
    release(&record);
    for (const int index : {0, 2}) {
        EXPECT_TRUE(isOpen(handle->data[index]));
        EXPECT_TRUE(closesOnExec(handle->data[index]));
    }
    native_handle_close(handle);
    native_handle_delete(handle);
}

TEST(NativeHandleTest, FromAidlGivesNullWhenThePlatformRefusesTheCounts) {
    const NativeHandle record = recordOf(std::vector<int>(NATIVE_HANDLE_MAX_FDS + 1, -1));
    EXPECT_EQ(makeFromAidl(record), nullptr);
    EXPECT_EQ(dupFromAidl(record), nullptr);
}

TEST(NativeHandleTest, ToAidlTakesOverOrDuplicates) {
    native_handle_t* handle = native_handle_create(2, 3);
    handle->data[0] = openDescriptor();
    handle->data[1] = -1;
    handle->data[2] = 1;
    handle->data[3] = 2;
    handle->data[4] = 3;

    const NativeHandle copy = dupToAidl(handle);
    ASSERT_EQ(copy.fds.size(), 2u);
    EXPECT_NE(copy.fds[0].get(), handle->data[0]);
    EXPECT_TRUE(closesOnExec(copy.fds[0].get()));
    EXPECT_EQ(copy.fds[1].get(), -1);
    EXPECT_THAT(copy.ints, ElementsAre(1, 2, 3));

    NativeHandle taken = makeToAidl(handle);
    EXPECT_EQ(taken.fds[0].get(), handle->data[0]);
    EXPECT_THAT(taken.ints, ElementsAre(1, 2, 3));
    release(&taken);
    EXPECT_FALSE(isOpen(handle->data[0]));
    EXPECT_TRUE(isOpen(copy.fds[0].get()));
    native_handle_delete(handle);
}

TEST(NativeHandleTest, ToAidlRefusesNegativeCounts) {
    native_handle_t* handle = native_handle_create(0, 0);
    handle->numFds = -1;
    EXPECT_THROW((void)makeToAidl(handle), std::length_error);
    handle->numFds = 0;
    handle->numInts = -1;
    EXPECT_THROW((void)makeToAidl(handle), std::length_error);
    handle->numInts = 0;
    native_handle_delete(handle);
}

TEST(NativeHandleTest, ReleaseClosesFromTheLastToTheFirstAndReportsFailures) {
    const int open1 = openDescriptor();
    const int open2 = openDescriptor();
    const int open3 = openDescriptor();
    NativeHandle record = recordOf({open1, open2, -1, open3}, {1});
    close(open1);
    close(open3);
    const SystemSpy spy;
    release(&record);
    EXPECT_THAT(spy.syslogLines(), ElementsAre(couldNotClose(open3), couldNotClose(open1)));
    EXPECT_FALSE(isOpen(open2));
    EXPECT_TRUE(isAidlNativeHandleEmpty(record));
}

TEST(NativeHandleTest, DestroyingARecordReportsAFailedClose) {
    const int fd = closedDescriptor();
    const SystemSpy spy;
    { const NativeHandle record = recordOf({fd}); }
    EXPECT_THAT(spy.syslogLines(), ElementsAre(couldNotClose(fd)));
}

}  // namespace
}  // namespace android
