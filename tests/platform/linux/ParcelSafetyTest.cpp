#include <climits>
#include <memory>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_status.h>

#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

/** What only this platform promises: a device crashes, leaks or does not care. */
namespace {

using ndk::ScopedAParcel;
using ndk::ScopedAStatus;

TEST(ParcelSafety, OverwrittenObjectsAreReleased) {
    const ScopedAParcel parcel(AParcel_create());
    AParcel_writeStrongBinder(parcel.get(), newBinder().get());
    const int32_t second = AParcel_getDataPosition(parcel.get());
    AParcel_writeStrongBinder(parcel.get(), newBinder().get());
    EXPECT_EQ(Echo::gAlive, 2);

    AParcel_setDataPosition(parcel.get(), 4);
    AParcel_writeInt32(parcel.get(), 0);
    EXPECT_EQ(Echo::gAlive, 1);
    AParcel_setDataPosition(parcel.get(), 0);
    AParcel_writeStrongBinder(parcel.get(), newBinder().get());
    EXPECT_EQ(Echo::gAlive, 2);
    for (const int32_t position : {0, second}) {
        AParcel_setDataPosition(parcel.get(), position);
        ndk::SpAIBinder binder;
        EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), binder.getR()), STATUS_OK);
        EXPECT_NE(binder.get(), nullptr);
    }
    AParcel_reset(parcel.get());
    EXPECT_EQ(Echo::gAlive, 0);
}

TEST(ParcelSafety, ObjectsStandOnWholeWords) {
    const ScopedAParcel from(AParcel_create());
    AParcel_writeStrongBinder(from.get(), newBinder().get());
    const ScopedAParcel to(AParcel_create());
    AParcel_setDataPosition(to.get(), 1);
    EXPECT_EQ(AParcel_writeStrongBinder(to.get(), newBinder().get()), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 0, AParcel_getDataSize(from.get())),
              STATUS_BAD_VALUE);
    EXPECT_EQ(Echo::gAlive, 1);
}

TEST(ParcelSafety, NoParcelOutgrowsItsPositions) {
    const ScopedAParcel from = parcelOf({1, 2});
    const ScopedAParcel parcel(AParcel_create());
    const int32_t numbers[] = {1, 2};
    for (const int32_t position : {INT32_MAX, INT32_MAX - 3}) {
        AParcel_setDataPosition(parcel.get(), position);
        EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_NO_MEMORY);
        EXPECT_EQ(AParcel_writeInt32Array(parcel.get(), numbers, 2), STATUS_NO_MEMORY);
        EXPECT_EQ(AParcel_writeString(parcel.get(), "a", 1), STATUS_NO_MEMORY);
        EXPECT_EQ(AParcel_appendFrom(from.get(), parcel.get(), 0, 8), STATUS_NO_MEMORY);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), position);
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    }
    EXPECT_EQ(AParcel_unmarshal(parcel.get(), nullptr, size_t{INT32_MAX} + 1), STATUS_BAD_VALUE);
}

TEST(StatusSafety, ThereIsOneOkStatus) {
    ScopedAStatus first = ScopedAStatus::ok();
    ScopedAStatus second = ScopedAStatus::fromStatus(STATUS_OK);
    EXPECT_EQ(first.get(), second.get());
    second = ScopedAStatus();
    EXPECT_TRUE(first.isOk());

    const ScopedAParcel parcel = parcelOf({EX_NONE});
    EXPECT_EQ(AParcel_readStatusHeader(parcel.get(), second.getR()), STATUS_OK);
    EXPECT_EQ(first.get(), second.get());
}

TEST(StatusSafety, NoneIsAFailedTransaction) {
    const ScopedAStatus none;
    EXPECT_EQ(none.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(none.getStatus(), STATUS_UNEXPECTED_NULL);
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(AParcel_writeStatusHeader(parcel.get(), none.get()), STATUS_UNEXPECTED_NULL);
}

TEST(HolderDeathTest, ChangeDuringItsReleaseAborts) {
    static ndk::SpAIBinder holder;
    const auto race = [] {
        AIBinder_Class* const clazz = AIBinder_Class_define(
                "test.race", [](void*) -> void* { return nullptr; },
                [](void*) { std::construct_at(&holder); },
                [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                    return STATUS_OK;
                });
        holder = ndk::SpAIBinder(AIBinder_new(clazz, nullptr));
        holder.set(nullptr);
    };
    EXPECT_DEATH(race(), "");
}

}  // namespace
