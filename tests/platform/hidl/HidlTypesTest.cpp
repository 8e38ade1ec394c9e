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

TEST(HidlStringTest, KeepsEmbeddedZerosButComparesUpToTheFirst) {
    const std::string withZeros("a\0b\0", 4);
    const hidl_string text(withZeros);
    EXPECT_EQ(text.size(), 4u);
    EXPECT_EQ(text.c_str()[4], '\0');
    EXPECT_EQ(std::string(hidl_string(text)), withZeros);
    EXPECT_EQ(hidl_string(withZeros.c_str()), "a");
    EXPECT_EQ(hidl_string("a"), text);
    EXPECT_GT(hidl_string("b"), text);
    for (const hidl_string& empty : {hidl_string(), hidl_string(nullptr), hidl_string("")}) {
        EXPECT_TRUE(empty.empty());
        EXPECT_STREQ(empty.c_str(), "");
    }
}

TEST(HidlStringTest, MovesBorrowsAndAssignsFromItself) {
    hidl_string source("text");
    const char* buffer = source.c_str();
    hidl_string text("other");
    text = std::move(source);
    EXPECT_EQ(text.c_str(), buffer);
    EXPECT_TRUE(source.empty());
    text = text.c_str() + 1;
    EXPECT_EQ(text, "ext");

    const char external[] = "borrowed";
    text.setToExternal(external, 8);
    EXPECT_EQ(text.c_str(), external);
    EXPECT_DEATH(text.setToExternal(external, 3), "not terminated");
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(HidlHandleTest, OwnsBorrowsAndClones) {
    native_handle_t* const native = native_handle_create(1, 1);
    const int fd = native->data[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    native->data[1] = 77;
    {
        hidl_handle borrowed(native);
        EXPECT_EQ(borrowed.getNativeHandle(), native);
        borrowed = native;
    }
    EXPECT_TRUE(isOpen(fd));

    hidl_handle owner;
    owner.setTo(native, true);
    hidl_handle copy(owner);
    hidl_handle next = std::move(owner);
    EXPECT_EQ(owner.getNativeHandle(), nullptr);
    EXPECT_EQ(next.getNativeHandle(), native);
    owner = hidl_handle();
    EXPECT_TRUE(isOpen(fd));
    next = hidl_handle();
    EXPECT_FALSE(isOpen(fd));

    const int cloned = copy->data[0];
    EXPECT_EQ(copy->data[1], 77);
    EXPECT_TRUE(isOpen(cloned));
    copy = next;
    EXPECT_EQ(copy.getNativeHandle(), nullptr);
    EXPECT_FALSE(isOpen(cloned));
}

TEST(ReturnTest, ValueOfAFailedCallAborts) {
    const Return<int32_t> good(-7);
    EXPECT_TRUE(good.isOk());
    EXPECT_EQ(static_cast<int32_t>(good), -7);
    const Return<int32_t> failed(Status::fromStatusT(-32));
    EXPECT_FALSE(failed.isOk());
    EXPECT_EQ(failed.withDefault(5), 5);
    EXPECT_DEATH(static_cast<void>(static_cast<int32_t>(failed)), "Transport error -32");
    EXPECT_DEATH(static_cast<void>(static_cast<int32_t>(Return<int32_t>(failed))),
                 "Transport error -32");
}

}  // namespace
