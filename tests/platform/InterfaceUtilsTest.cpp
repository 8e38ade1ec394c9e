#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_to_string.h>

#include <gtest/gtest.h>

namespace {

using android::internal::ToString;
using ndk::SharedRefBase;
using ndk::SpAIBinder;

class Object : public SharedRefBase {
  public:
    explicit Object(bool* alive) : mAlive(alive) { *mAlive = true; }
    ~Object() override { *mAlive = false; }

  private:
    bool* mAlive;
};

TEST(InterfaceUtils, ObjectsLiveAsLongAsAnyOwner) {
    bool alive = false;
    std::shared_ptr<Object> first = SharedRefBase::make<Object>(&alive);
    std::shared_ptr<Object> second = first->ref<Object>();
    EXPECT_EQ(first, second);
    first.reset();
    EXPECT_TRUE(alive);
    second.reset();
    EXPECT_FALSE(alive);
}

TEST(InterfaceUtilsDeathTest, ObjectsNotMadeAsOwnedAbort) {
    EXPECT_DEATH(
            {
                bool alive = false;
                const Object object(&alive);
            },
            "SharedRefBase::make");
}

class Echo : public ndk::ICInterface {
  public:
    // As generated code has them, but for local objects only.
    static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<Echo>& object) {
        return AParcel_writeStrongBinder(parcel, object ? object->asBinder().get() : nullptr);
    }
    static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<Echo>* object) {
        SpAIBinder binder;
        const binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
        if (status == STATUS_OK)
            *object = std::static_pointer_cast<Echo>(asInterface(binder.get()));
        return status;
    }
};

class BnEcho : public ndk::BnCInterface<Echo> {
  public:
    static inline int gAlive = 0;
    BnEcho() { ++gAlive; }
    ~BnEcho() override { --gAlive; }

    static AIBinder_Class* clazz() {
        static AIBinder_Class* const defined =
                defineClass("test.echo",
                            [](AIBinder*, transaction_code_t, const AParcel*,
                               AParcel*) -> binder_status_t { return STATUS_UNKNOWN_TRANSACTION; });
        return defined;
    }

  protected:
    SpAIBinder createBinder() override { return SpAIBinder(AIBinder_new(clazz(), this)); }
};

TEST(InterfaceUtils, ObjectAndBinderHoldEachOtherOneWay) {
    auto object = SharedRefBase::make<BnEcho>();
    SpAIBinder binder = object->asBinder();
    EXPECT_EQ(object->asBinder(), binder);
    EXPECT_FALSE(object->isRemote());
    EXPECT_EQ(ndk::ICInterface::asInterface(binder.get()), object);
    EXPECT_EQ(ndk::ICInterface::asInterface(nullptr), nullptr);

    // The object remains without its binder, and makes another when asked.
    binder.set(nullptr);
    binder = object->asBinder();
    EXPECT_NE(binder.get(), nullptr);

    // The binder keeps the object alive; the last reference to it ends both.
    object.reset();
    EXPECT_EQ(BnEcho::gAlive, 1);
    binder.set(nullptr);
    EXPECT_EQ(BnEcho::gAlive, 0);
}

TEST(InterfaceUtils, InterfacesInParcels) {
    const std::shared_ptr<Echo> object = SharedRefBase::make<BnEcho>();
    const ndk::ScopedAParcel owner(AParcel_create());
    AParcel* const parcel = owner.get();
    EXPECT_EQ(ndk::AParcel_writeData(parcel, std::shared_ptr<Echo>()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel, std::shared_ptr<Echo>()), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeData(parcel, std::vector{object, object}), STATUS_OK);
    const int32_t third = AParcel_getDataPosition(parcel);
    EXPECT_EQ(ndk::AParcel_writeNullableData(parcel, std::optional(std::vector{object, {}})),
              STATUS_OK);

    AParcel_setDataPosition(parcel, 0);
    std::shared_ptr<Echo> single = object;
    EXPECT_EQ(ndk::AParcel_readData(parcel, &single), STATUS_OK) << "left to the method";
    EXPECT_EQ(single, nullptr);
    std::vector<std::shared_ptr<Echo>> list;
    EXPECT_EQ(ndk::AParcel_readData(parcel, &list), STATUS_OK);
    EXPECT_EQ(list, (std::vector{object, object}));
    EXPECT_EQ(ndk::AParcel_readData(parcel, &list), STATUS_UNEXPECTED_NULL);
    AParcel_setDataPosition(parcel, third);
    std::optional<std::vector<std::shared_ptr<Echo>>> optional;
    EXPECT_EQ(ndk::AParcel_readNullableData(parcel, &optional), STATUS_OK);
    EXPECT_EQ(optional, (std::optional<std::vector<std::shared_ptr<Echo>>>{{object, {}}}));
}

TEST(InterfaceUtilsDeathTest, HolderChangedDuringItsReleaseAborts) {
    static SpAIBinder holder;
    const auto race = [] {
        AIBinder_Class* const clazz = AIBinder_Class_define(
                "test.race", [](void*) -> void* { return nullptr; },
                [](void*) { (void)holder.release(); },
                [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                    return STATUS_OK;
                });
        holder = SpAIBinder(AIBinder_new(clazz, nullptr));
        holder.set(nullptr);
    };
    EXPECT_DEATH(race(), "Race detected\\.");
}

enum class Plain : int8_t { kTwo = 2 };
enum class Named { kName };
std::string toString(Named) {
    return "kName";
}

TEST(InterfaceUtils, TextOfValues) {
    EXPECT_EQ(ToString(true), "true");
    EXPECT_EQ(ToString(int8_t{-3}), "-3");
    EXPECT_EQ(ToString(u'A'), "65");
    EXPECT_EQ(ToString(std::string("text")), "text");
    EXPECT_EQ(ToString(Plain::kTwo), "2");
    EXPECT_EQ(ToString(Named::kName), "kName");
    EXPECT_EQ(ToString(std::vector<bool>{true, false}), "[true, false]");
    EXPECT_EQ(ToString(std::array<std::array<int, 2>, 2>{{{1, 2}, {3, 4}}}), "[[1, 2], [3, 4]]");
    EXPECT_EQ(ToString(std::optional<std::vector<std::optional<std::string>>>{{"a", {}}}),
              "[a, (null)]");
    EXPECT_EQ(ToString(std::unique_ptr<int>()), "(null)");
    EXPECT_EQ(ToString(SpAIBinder()), "(null)");
    EXPECT_EQ(ToString(ndk::ScopedFileDescriptor(-1)), "fd:-1");
    EXPECT_EQ(ToString(std::shared_ptr<Echo>()), "(null)");
}

}  // namespace
