#include <array>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <aidl/android/hardware/common/NativeHandle.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ParcelRecord.h"

namespace {

using aidl::android::hardware::common::NativeHandle;
using ndk::ScopedAParcel;
using ndk::ScopedFileDescriptor;
using ndk::SpAIBinder;
using testing::ElementsAre;

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

struct Counted {
    static inline int gAlive = 0;

    static SpAIBinder make() {
        static AIBinder_Class* const clazz = AIBinder_Class_define(
                "test.counted",
                [](void*) -> void* {
                    ++gAlive;
                    return &gAlive;
                },
                [](void*) { --gAlive; },
                [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                    return STATUS_UNKNOWN_TRANSACTION;
                });
        return SpAIBinder(AIBinder_new(clazz, nullptr));
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

TEST(ParcelObject, AbsentAndInvalidDescriptors) {
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), ScopedFileDescriptor()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AParcel_writeParcelFileDescriptor(parcel.get(), -5), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(AParcel_writeParcelFileDescriptor(parcel.get(), 1 << 20), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel.get(), ScopedFileDescriptor()), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    ScopedFileDescriptor fd(dup(0));
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel.get(), &fd), STATUS_OK);
    EXPECT_EQ(fd.get(), -1);
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &fd), STATUS_UNEXPECTED_NULL);
}

TEST(ParcelObject, HandlesKeepTheOrderOfTheirDescriptors) {
    std::array<Pipe, 3> pipes;
    NativeHandle handle;
    for (Pipe& pipe : pipes)
        handle.fds.push_back(std::move(pipe.writeEnd));
    handle.ints = {1, -2};
    const ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), handle), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    NativeHandle read;
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
    EXPECT_THAT(read.ints, ElementsAre(1, -2));
    ASSERT_EQ(read.fds.size(), pipes.size());
    for (size_t i = 0; i < pipes.size(); ++i) {
        const auto mark = static_cast<char>('a' + i);
        ASSERT_EQ(write(read.fds[i].get(), &mark, 1), 1);
        char byte = 0;
        EXPECT_EQ(::read(pipes[i].readEnd.get(), &byte, 1), 1);
        EXPECT_EQ(byte, mark);
    }
}

TEST(ParcelObject, BindersAreReferenced) {
    {
        const ScopedAParcel parcel(AParcel_create());
        {
            const SpAIBinder binder = Counted::make();
            ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), binder), STATUS_OK);
            ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), SpAIBinder()), STATUS_OK);
            ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), binder), STATUS_OK);
            AParcel_setDataPosition(parcel.get(), 0);
            SpAIBinder read;
            ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
            EXPECT_EQ(read.get(), binder.get());
            EXPECT_EQ(ndk::AParcel_readNullableData(parcel.get(), &read), STATUS_OK);
            EXPECT_EQ(read.get(), nullptr);
            EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
            EXPECT_EQ(read.get(), binder.get());
        }
        EXPECT_EQ(Counted::gAlive, 1) << "the parcel keeps it";
    }
    EXPECT_EQ(Counted::gAlive, 0);
}

TEST(ParcelObject, AbsentBindersAreRefusedWhereTheyAreNeeded) {
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), SpAIBinder()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::vector<SpAIBinder>(1)),
              STATUS_UNEXPECTED_NULL);
    AParcel_reset(parcel.get());
    EXPECT_EQ(AParcel_writeStrongBinder(parcel.get(), nullptr), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    SpAIBinder binder;
    EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &binder), STATUS_UNEXPECTED_NULL);
}

TEST(ParcelObject, BytesDoNotMakeAnObject) {
    // The bytes of a parcel that holds objects, carried into one that holds none.
    const ScopedAParcel objects(AParcel_create());
    AParcel_writeStrongBinder(objects.get(), Counted::make().get());
    AParcel_writeParcelFileDescriptor(objects.get(), 0);
    std::vector<int32_t> words(static_cast<size_t>(AParcel_getDataSize(objects.get())) / 4);
    AParcel_setDataPosition(objects.get(), 0);
    for (int32_t& word : words)
        ASSERT_EQ(AParcel_readInt32(objects.get(), &word), STATUS_OK);

    const ScopedAParcel forged(AParcel_create());
    for (const int32_t word : words)
        AParcel_writeInt32(forged.get(), word);
    AParcel_setDataPosition(forged.get(), 0);
    SpAIBinder binder;
    EXPECT_EQ(AParcel_readStrongBinder(forged.get(), binder.getR()), STATUS_BAD_TYPE);
    EXPECT_EQ(binder.get(), nullptr);
    int fd = -1;
    EXPECT_EQ(AParcel_readParcelFileDescriptor(forged.get(), &fd), STATUS_BAD_TYPE);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(AParcel_readStrongBinder(forged.get(), binder.getR()), STATUS_NOT_ENOUGH_DATA);
}

TEST(ParcelObject, AnObjectIsNotReadAsAnother) {
    const ScopedAParcel parcel(AParcel_create());
    AParcel_writeInt32(parcel.get(), 1);  // what leads a descriptor
    AParcel_writeStrongBinder(parcel.get(), Counted::make().get());
    AParcel_setDataPosition(parcel.get(), 0);
    int fd = -1;
    EXPECT_EQ(AParcel_readParcelFileDescriptor(parcel.get(), &fd), STATUS_BAD_TYPE);

    AParcel_reset(parcel.get());
    AParcel_writeParcelFileDescriptor(parcel.get(), 0);
    AParcel_setDataPosition(parcel.get(), 4);
    SpAIBinder binder;
    EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), binder.getR()), STATUS_BAD_TYPE);
}

TEST(ParcelObject, OverwrittenObjectsAreReleased) {
    const ScopedAParcel parcel(AParcel_create());
    const int32_t first = AParcel_getDataPosition(parcel.get());
    AParcel_writeStrongBinder(parcel.get(), Counted::make().get());
    const int32_t second = AParcel_getDataPosition(parcel.get());
    AParcel_writeStrongBinder(parcel.get(), Counted::make().get());
    EXPECT_EQ(Counted::gAlive, 2);

    AParcel_setDataPosition(parcel.get(), first + 4);
    AParcel_writeInt32(parcel.get(), 0);
    EXPECT_EQ(Counted::gAlive, 1);
    AParcel_setDataPosition(parcel.get(), first);
    AParcel_writeStrongBinder(parcel.get(), Counted::make().get());
    EXPECT_EQ(Counted::gAlive, 2);
    for (const int32_t position : {first, second}) {
        AParcel_setDataPosition(parcel.get(), position);
        SpAIBinder binder;
        EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), binder.getR()), STATUS_OK);
        EXPECT_NE(binder.get(), nullptr);
    }
    AParcel_reset(parcel.get());
    EXPECT_EQ(Counted::gAlive, 0);
}

TEST(ParcelObject, AppendingCopiesWholeObjects) {
    Pipe pipe;
    const ScopedAParcel to(AParcel_create());
    AParcel_writeInt32(to.get(), 5);
    {
        const ScopedAParcel from(AParcel_create());
        AParcel_writeStrongBinder(from.get(), Counted::make().get());
        const int32_t middle = AParcel_getDataPosition(from.get());
        ASSERT_EQ(ndk::AParcel_writeData(from.get(), pipe.writeEnd), STATUS_OK);
        pipe.writeEnd.set(-1);
        const int32_t size = AParcel_getDataSize(from.get());
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), middle, size - middle), STATUS_OK);
        // Half an object is none.
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 0, 4), STATUS_OK);
        // Objects stand on whole words only.
        AParcel_setDataPosition(to.get(), AParcel_getDataSize(to.get()) + 1);
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 0, middle), STATUS_BAD_VALUE);
    }
    EXPECT_EQ(Counted::gAlive, 0);
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
