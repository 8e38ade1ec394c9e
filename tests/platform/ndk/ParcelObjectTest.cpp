#include <array>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

namespace {

using ndk::ScopedAParcel;
using ndk::ScopedFileDescriptor;
using ndk::SpAIBinder;

/** A pipe whose reading end tells whether any duplicate of its writing end is left. */
struct Pipe {
    ScopedFileDescriptor readEnd;
    ScopedFileDescriptor writeEnd;

    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
        readEnd.set(ends[0]);
        writeEnd.set(ends[1]);
    }
    bool hasWriter() const {
        char byte = 0;
        return ::read(readEnd.get(), &byte, 1) != 0;
    }
};

TEST(ParcelObject, DescriptorsAreDuplicatedAndClosed) {
    Pipe pipe;
    ScopedFileDescriptor received;
    {
        const ScopedAParcel parcel(AParcel_create());
        ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), pipe.writeEnd), STATUS_OK);
        pipe.writeEnd.set(-1);
        AParcel_setDataPosition(parcel.get(), 0);
        ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &received), STATUS_OK);
        EXPECT_NE(fcntl(received.get(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
        uint8_t byte = 0;
        EXPECT_EQ(AParcel_marshal(parcel.get(), &byte, 0, 1), STATUS_INVALID_OPERATION);
        received.set(-1);
        EXPECT_TRUE(pipe.hasWriter()) << "the parcel still holds one";
    }
    EXPECT_FALSE(pipe.hasWriter());
}

TEST(ParcelObject, AbsentDescriptorsAreAWord) {
    const Pipe pipe;
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), ScopedFileDescriptor()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AParcel_writeParcelFileDescriptor(parcel.get(), -5), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel.get(), ScopedFileDescriptor()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel.get(), pipe.writeEnd), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    for (const int32_t expected : {0, 1}) {
        int32_t present = -1;
        EXPECT_EQ(AParcel_readInt32(parcel.get(), &present), STATUS_OK);
        EXPECT_EQ(present, expected);
    }

    AParcel_setDataPosition(parcel.get(), 0);
    ScopedFileDescriptor fd(dup(0));
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel.get(), &fd), STATUS_OK);
    EXPECT_EQ(fd.get(), -1);
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel.get(), &fd), STATUS_OK);
    EXPECT_NE(fd.get(), -1);
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &fd), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AParcel_writeParcelFileDescriptor(parcel.get(), 1 << 20), STATUS_UNKNOWN_ERROR);
}

TEST(ParcelObject, BindersAreReferenced) {
    {
        const ScopedAParcel parcel(AParcel_create());
        {
            const SpAIBinder binder = newBinder();
            ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), binder), STATUS_OK);
            ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), SpAIBinder()), STATUS_OK);
            AParcel_setDataPosition(parcel.get(), 0);
            SpAIBinder read;
            ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
            EXPECT_EQ(read.get(), binder.get());
            const int32_t second = AParcel_getDataPosition(parcel.get());
            EXPECT_EQ(ndk::AParcel_readNullableData(parcel.get(), &read), STATUS_OK);
            EXPECT_EQ(read.get(), nullptr);
            AParcel_setDataPosition(parcel.get(), second);
            EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_UNEXPECTED_NULL);
        }
        EXPECT_EQ(Echo::gAlive, 1) << "the parcel keeps it";
        EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), SpAIBinder()), STATUS_UNEXPECTED_NULL);
        EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::vector<SpAIBinder>(1)),
                  STATUS_UNEXPECTED_NULL);
    }
    EXPECT_EQ(Echo::gAlive, 0);
}

/** The bytes of a parcel that holds one object, copied in two parts: neither has the object. */
ScopedAParcel halved(const ScopedAParcel& from) {
    ScopedAParcel to(AParcel_create());
    const int32_t size = AParcel_getDataSize(from.get());
    const int32_t middle = size * 2 / 3 & ~3;
    EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 0, middle), STATUS_OK);
    EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), middle, size - middle), STATUS_OK);
    AParcel_setDataPosition(to.get(), 0);
    return to;
}

TEST(ParcelObject, OnlyObjectsAreReadAsObjects) {
    SpAIBinder binder;
    int fd = -1;
    int32_t word = 0;

    const ScopedAParcel binders(AParcel_create());
    AParcel_writeStrongBinder(binders.get(), newBinder().get());
    EXPECT_EQ(AParcel_readStrongBinder(halved(binders).get(), binder.getR()), STATUS_BAD_TYPE);
    AParcel_setDataPosition(binders.get(), 0);
    EXPECT_NE(AParcel_readInt32(binders.get(), &word), STATUS_OK) << "no number lies there";

    const ScopedAParcel descriptors(AParcel_create());
    AParcel_writeParcelFileDescriptor(descriptors.get(), 0);
    EXPECT_NE(AParcel_readParcelFileDescriptor(halved(descriptors).get(), &fd), STATUS_OK);
    AParcel_setDataPosition(descriptors.get(), 4);
    EXPECT_NE(AParcel_readStrongBinder(descriptors.get(), binder.getR()), STATUS_OK);

    const ScopedAParcel mixed = parcelOf({1});  // what leads a descriptor
    AParcel_setDataPosition(mixed.get(), 4);
    AParcel_writeStrongBinder(mixed.get(), newBinder().get());
    AParcel_setDataPosition(mixed.get(), 0);
    EXPECT_NE(AParcel_readParcelFileDescriptor(mixed.get(), &fd), STATUS_OK);

    EXPECT_EQ(binder.get(), nullptr);
    EXPECT_EQ(fd, -1);
}

TEST(ParcelObject, AppendingCopiesWholeObjects) {
    Pipe pipe;
    const ScopedAParcel to(AParcel_create());
    AParcel_writeInt32(to.get(), 5);
    {
        const ScopedAParcel from(AParcel_create());
        AParcel_writeStrongBinder(from.get(), newBinder().get());
        const int32_t middle = AParcel_getDataPosition(from.get());
        ASSERT_EQ(ndk::AParcel_writeData(from.get(), pipe.writeEnd), STATUS_OK);
        pipe.writeEnd.set(-1);
        const int32_t size = AParcel_getDataSize(from.get());
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), middle, size - middle), STATUS_OK);
        // Half an object is none.
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 0, 4), STATUS_OK);
    }
    EXPECT_EQ(Echo::gAlive, 0);
    EXPECT_TRUE(pipe.hasWriter());
    AParcel_setDataPosition(to.get(), 4);
    {
        ScopedFileDescriptor fd;
        EXPECT_EQ(ndk::AParcel_readData(to.get(), &fd), STATUS_OK);
    }
    AParcel_reset(to.get());
    EXPECT_FALSE(pipe.hasWriter());
}

}  // namespace
