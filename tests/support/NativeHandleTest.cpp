#include "support/NativeHandle.h"

#include <fcntl.h>
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

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

int openNull() {
    return open("/dev/null", O_RDONLY);
}

bool closesOnExec(int fd) {
    return isOpen(fd) && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

/** The numbers that the next descriptors have to get. */
std::vector<int> lowestFree(int count) {
    std::vector<int> numbers;
    for (int i = 0; i < count; ++i)
        numbers.push_back(openNull());
    for (const int fd : numbers)
        close(fd);
    return numbers;
}

NativeHandle recordOf(const std::vector<int>& fds, std::vector<int32_t> ints = {}) {
    NativeHandle record;
    for (const int fd : fds)
        record.fds.emplace_back(fd);
    record.ints = std::move(ints);
    return record;
}

TEST(NativeHandleTest, EmptyMeansNeitherDescriptorsNorIntegers) {
    EXPECT_TRUE(isAidlNativeHandleEmpty({}));
    EXPECT_FALSE(isAidlNativeHandleEmpty(recordOf({-1})));
    EXPECT_FALSE(isAidlNativeHandleEmpty(recordOf({}, {0})));
}

TEST(NativeHandleTest, RecordsBecomeHandlesWithTheirNumbersOrDuplicates) {
    const int first = openNull();
    const int last = openNull();
    native_handle_t* made = nullptr;
    native_handle_t* copy = nullptr;
    const auto lowest = lowestFree(2);
    {
        const NativeHandle record = recordOf({first, -1, last}, {10, -20});
        made = makeFromAidl(record);
        copy = dupFromAidl(record);
    }
    EXPECT_FALSE(isOpen(first));
    EXPECT_FALSE(isOpen(last));
    for (const native_handle_t* handle : {made, copy}) {
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(handle->numFds, 3);
        EXPECT_EQ(handle->numInts, 2);
        EXPECT_THAT(std::vector<int>(handle->data + 3, handle->data + 5), ElementsAre(10, -20));
    }
    EXPECT_THAT(std::vector<int>(made->data, made->data + 3), ElementsAre(first, -1, last));
    EXPECT_EQ(copy->data[1], -1);
    EXPECT_THAT(lowest, ElementsAre(copy->data[0], copy->data[2]));
    EXPECT_TRUE(closesOnExec(copy->data[0]));
    EXPECT_TRUE(closesOnExec(copy->data[2]));
    native_handle_close(copy);
    native_handle_delete(copy);
    native_handle_delete(made);

    const NativeHandle tooMany = recordOf(std::vector<int>(NATIVE_HANDLE_MAX_FDS + 1, -1));
    EXPECT_EQ(makeFromAidl(tooMany), nullptr);
    EXPECT_EQ(dupFromAidl(tooMany), nullptr);
}

TEST(NativeHandleTest, HandlesBecomeRecordsThatOwnTheirNumbersOrDuplicates) {
    native_handle_t* handle = native_handle_create(2, 3);
    const int number = openNull();
    const int data[] = {-1, number, 1, 2, 3};
    std::memcpy(handle->data, data, sizeof data);
    const auto lowest = lowestFree(1);
    const NativeHandle copy = dupToAidl(handle);
    {
        const NativeHandle taken = makeToAidl(handle);
        EXPECT_EQ(taken.fds[1].get(), number);
        EXPECT_THAT(taken.ints, ElementsAre(1, 2, 3));
    }
    EXPECT_FALSE(isOpen(number));
    ASSERT_EQ(copy.fds.size(), 2u);
    EXPECT_EQ(copy.fds[0].get(), -1);
    EXPECT_THAT(lowest, ElementsAre(copy.fds[1].get()));
    EXPECT_TRUE(closesOnExec(copy.fds[1].get()));
    EXPECT_THAT(copy.ints, ElementsAre(1, 2, 3));

    handle->numFds = -1;
    EXPECT_THROW((void)makeToAidl(handle), std::length_error);
    handle->numFds = 0;
    handle->numInts = -1;
    EXPECT_THROW((void)makeToAidl(handle), std::length_error);
    handle->numInts = 0;
    native_handle_delete(handle);
}

TEST(NativeHandleTest, ARecordReportsAFailedClose) {
    const int fd = openNull();
    close(fd);
    const vela::test::SystemSpy spy;
    { const NativeHandle record = recordOf({fd, -1}); }
    const std::string text = "Could not close FD " + std::to_string(fd) + ": " + strerror(EBADF);
    EXPECT_THAT(spy.syslogLines(), ElementsAre(vela::test::SystemSpy::Line{LOG_ERR, text}));
}

}  // namespace
}  // namespace android
