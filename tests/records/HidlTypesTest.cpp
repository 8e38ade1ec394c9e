#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

namespace {

using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Status;

const std::string kWithZeros("a\0b\0", 4);

TEST(HidlStringTest, KeepsEmbeddedZeros) {
    const hidl_string text(kWithZeros);
    EXPECT_EQ(text.size(), 4u);
    EXPECT_EQ(std::string(text), kWithZeros);
    EXPECT_EQ(text.c_str()[4], '\0');
    EXPECT_EQ(std::string(hidl_string(text)), kWithZeros);
    EXPECT_EQ(hidl_string(kWithZeros.c_str()), "a");
    EXPECT_NE(hidl_string("a"), text);
}

TEST(HidlStringTest, EmptyTextsAreTerminated) {
    const hidl_string texts[] = {hidl_string(), hidl_string(""), hidl_string(nullptr),
                                 hidl_string(std::string())};
    for (const hidl_string& text : texts) {
        EXPECT_TRUE(text.empty());
        EXPECT_STREQ(text.c_str(), "");
    }
}

TEST(HidlStringTest, MovedFromIsEmpty) {
    hidl_string source("text");
    const char* buffer = source.c_str();
    hidl_string target("other");
    target = std::move(source);
    EXPECT_EQ(target.c_str(), buffer);
    EXPECT_TRUE(source.empty());
}

TEST(HidlStringTest, AssignsFromItself) {
    hidl_string text("abcdef");
    text = text.c_str() + 3;
    EXPECT_EQ(text, "def");
}

TEST(HidlStringTest, BorrowsTerminatedText) {
    const char external[] = "borrowed";
    hidl_string text("owned");
    text.setToExternal(external, 8);
    EXPECT_EQ(text.c_str(), external);
    EXPECT_EQ(text, "borrowed");
    EXPECT_DEATH(text.setToExternal(external, 3), "not terminated");
}

class HidlHandleTest : public ::testing::Test {
  protected:
    HidlHandleTest() : mHandle(native_handle_create(1, 1)) {
        mHandle->data[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
        mHandle->data[1] = 77;
    }

    static bool isOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

    native_handle_t* mHandle;
};

TEST_F(HidlHandleTest, BorrowedHandlesStayOpen) {
    {
        hidl_handle handle(mHandle);
        EXPECT_EQ(handle.getNativeHandle(), mHandle);
        handle = mHandle;
    }
    EXPECT_TRUE(isOpen(mHandle->data[0]));
    hidl_handle owner;
    owner.setTo(mHandle, true);
}

TEST_F(HidlHandleTest, OwnedHandlesAreClosedOnce) {
    const int fd = mHandle->data[0];
    hidl_handle owner;
    owner.setTo(mHandle, true);
    hidl_handle next = std::move(owner);
    EXPECT_EQ(owner.getNativeHandle(), nullptr);
    EXPECT_EQ(next.getNativeHandle(), mHandle);
    owner = hidl_handle();
    EXPECT_TRUE(isOpen(fd));
    next = hidl_handle();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(HidlHandleTest, CopiesAreOwnedClones) {
    hidl_handle owner;
    owner.setTo(mHandle, true);
    hidl_handle copy(owner);
    const int fd = copy->data[0];
    EXPECT_NE(fd, owner->data[0]);
    EXPECT_EQ(copy->data[1], 77);
    owner = hidl_handle();
    EXPECT_TRUE(isOpen(fd));
    copy = owner;
    EXPECT_EQ(copy.getNativeHandle(), nullptr);
    EXPECT_FALSE(isOpen(fd));
}

TEST(ReturnTest, ValueOfFailedCallAborts) {
    const Return<int32_t> good(-7);
    EXPECT_TRUE(good.isOk());
    EXPECT_EQ(static_cast<int32_t>(good), -7);
    const Return<int32_t> failed(Status::fromStatusT(-32));
    EXPECT_FALSE(failed.isOk());
    EXPECT_EQ(failed.withDefault(5), 5);
    EXPECT_DEATH(static_cast<void>(static_cast<int32_t>(failed)), "Transport error -32");
}

}  // namespace
