#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <aidl/platformtest/Kind.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_to_string.h>

#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

namespace {

using aidl::platformtest::IEcho;
using android::internal::ToString;
using ndk::SharedRefBase;
using ndk::SpAIBinder;

TEST(InterfaceUtilsDeathTest, ObjectsNotMadeAsOwnedAbort) {
    EXPECT_DEATH(Echo(), "");
}

TEST(InterfaceUtils, ObjectAndBinderHoldEachOtherOneWay) {
    auto object = SharedRefBase::make<Echo>();
    SpAIBinder binder = object->asBinder();
    EXPECT_EQ(object->asBinder(), binder);
    EXPECT_FALSE(object->isRemote());
    EXPECT_EQ(ndk::ICInterface::asInterface(binder.get()), object);
    EXPECT_EQ(ndk::ICInterface::asInterface(nullptr), nullptr);

    // The object remains without its binder, and makes another when asked.
    binder.set(nullptr);
    binder = object->asBinder();
    EXPECT_NE(binder.get(), nullptr);

    // Owners and binder keep the object alive; the last of them ends it.
    std::shared_ptr<Echo> owner = object->ref<Echo>();
    EXPECT_EQ(owner, object);
    object.reset();
    owner.reset();
    EXPECT_EQ(Echo::gAlive, 1);
    binder.set(nullptr);
    EXPECT_EQ(Echo::gAlive, 0);
}

TEST(InterfaceUtils, InterfacesInParcels) {
    using List = std::vector<std::shared_ptr<IEcho>>;
    const std::shared_ptr<IEcho> object = SharedRefBase::make<Echo>();
    const ndk::ScopedAParcel owner(AParcel_create());
    AParcel* const parcel = owner.get();
    // Whether it may be absent is for the method to judge.
    EXPECT_EQ(ndk::AParcel_writeData(parcel, std::shared_ptr<IEcho>()), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel, std::shared_ptr<IEcho>()), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeData(parcel, List{object, object}), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel, std::optional(List{object, {}})), STATUS_OK);

    AParcel_setDataPosition(parcel, 0);
    std::shared_ptr<IEcho> single = object;
    EXPECT_EQ(ndk::AParcel_readData(parcel, &single), STATUS_OK);
    EXPECT_EQ(single, nullptr);
    single = object;
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel, &single), STATUS_OK);
    EXPECT_EQ(single, nullptr);
    List list;
    EXPECT_EQ(ndk::AParcel_readData(parcel, &list), STATUS_OK);
    EXPECT_EQ(list, (List{object, object}));
    std::optional<List> optional;
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel, &optional), STATUS_OK);
    EXPECT_EQ(optional, (List{object, {}}));
}

template <typename T>
concept Releasable = requires(T value) {
    value.release();
};
static_assert(Releasable<ndk::ScopedAParcel> && !Releasable<SpAIBinder>);

TEST(InterfaceUtils, AMovedBinderLeavesItsReference) {
    SpAIBinder from = newBinder();
    const SpAIBinder to(static_cast<SpAIBinder&&>(from));
    EXPECT_EQ(from, to);
    from.set(nullptr);
    EXPECT_EQ(Echo::gAlive, 1);
}

TEST(InterfaceUtils, TextOfValues) {
    EXPECT_EQ(ToString(true), "true");
    EXPECT_EQ(ToString(int8_t{-3}), "-3");
    EXPECT_EQ(ToString(u'A') + ToString(u'\u00e9') + ToString(u'\u4e16'), "A\u00e9\u4e16");
    EXPECT_EQ(ToString(std::string("text")), "text");
    EXPECT_EQ(ToString(aidl::platformtest::Kind::ODD), "ODD");
    EXPECT_EQ(ToString(std::vector<bool>{true, false}), "[true, false]");
    EXPECT_EQ(ToString(std::array<std::array<int, 2>, 2>{{{1, 2}, {3, 4}}}), "[[1, 2], [3, 4]]");
    EXPECT_EQ(ToString(std::optional<std::vector<std::optional<std::string>>>{{"a", {}}}),
              "[a, (null)]");
    EXPECT_EQ(ToString(std::unique_ptr<int>()), "(null)");
    EXPECT_EQ(ToString(ndk::ScopedFileDescriptor(-1)), "fd:-1");
}

}  // namespace
