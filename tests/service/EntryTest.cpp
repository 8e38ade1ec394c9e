#include "service/Entry.h"

#include <dlfcn.h>

#include <android/binder_manager.h>

#include "tests/service/ServiceTest.h"

namespace {

/** Stands in for the service manager, and counts what the product frees of a status. */
struct Manager {
    binder_exception_t answer = EX_NONE;
    std::string name;
    ndk::SpAIBinder published;
    int freed = 0;
};
Manager* gManager = nullptr;

template <typename Function>
Function* platforms(Function* /*own*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The test program's own definitions of these functions come before the platform's library.

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    gManager->name = instance;
    if (gManager->answer == EX_NONE) {
        AIBinder_incStrong(binder);
        gManager->published.set(binder);
    }
    return gManager->answer;
}

void AStatus_delete(AStatus* status) {
    if (gManager != nullptr) ++gManager->freed;
    platforms(&AStatus_delete, "AStatus_delete")(status);
}

void AStatus_deleteDescription(const char* text) {
    if (gManager != nullptr) ++gManager->freed;
    platforms(&AStatus_deleteDescription, "AStatus_deleteDescription")(text);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    // It refuses, too: the test's own objects are no other process's.
    (void)platforms(&AIBinder_linkToDeath, "AIBinder_linkToDeath")(binder, recipient, cookie);
    return STATUS_DEAD_OBJECT;
}

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using vela::test::LogLine;

class EntryTest : public vela::test::ChipTest {
  protected:
    EntryTest() { gManager = &mManager; }
    ~EntryTest() override {
        releaseAll();
        gManager = nullptr;
    }

    /** Every object of the service has to go before the library does. */
    void releaseAll() {
        mManager.published.set(nullptr);
        gDefaultInstance.reset();
    }

    static bool hearsFeatureChanges() {
        return library().isSet(lmfg::VelaServiceCallbacks::Member::kFeatureChanged);
    }

    Manager mManager;
    vela::test::LogCapture mLog;
};

TEST_F(EntryTest, PublishesOneObjectEvenWithoutALibrary) {
    mLog.onNextLine([] { EXPECT_FALSE(hearsFeatureChanges()); });
    for (const bool isDegraded : {false, true}) {
        if (isDegraded) {
            releaseAll();
            lmfg::installChip(nullptr);
        }
        EXPECT_EQ(AIDL_REGISTER_IVela(), 0);
        EXPECT_EQ(mManager.name, "vendor.lumenforge.hardware.display.IVela/default");
        EXPECT_EQ(IVela::fromBinder(mManager.published), gDefaultInstance);
        EXPECT_THAT(mLog.take(), ElementsAre(LogLine{3, "IVela HAL starting up..."},
                                             LogLine{3, "IVela HAL is registered"}));
    }
}

TEST_F(EntryTest, KeepsObjectStatusAndTextOfARefusedPublication) {
    mManager.answer = EX_ILLEGAL_STATE;
    EXPECT_EQ(AIDL_REGISTER_IVela(), 1);
    EXPECT_EQ(mManager.freed, 0);
    const std::string text = ndk::ScopedAStatus::fromStatus(EX_ILLEGAL_STATE).getDescription();
    EXPECT_THAT(mLog.take(),
                ElementsAre(LogLine{3, "IVela HAL starting up..."},
                            LogLine{5, "Failed to register " + mManager.name}, LogLine{5, text}));
    EXPECT_EQ(gDefaultInstance.use_count(), 1);
    EXPECT_TRUE(hearsFeatureChanges());
}

TEST_F(EntryTest, AFirstObjectThatGoesEmptiesTheSecondsClosures) {
    ASSERT_EQ(AIDL_REGISTER_IVela(), 0);
    const std::weak_ptr<VelaDefault> first = gDefaultInstance;
    ndk::SpAIBinder client = mManager.published;
    ASSERT_EQ(AIDL_REGISTER_IVela(), 0);
    EXPECT_NE(gDefaultInstance, first.lock());
    EXPECT_EQ(IVela::fromBinder(mManager.published), gDefaultInstance);
    EXPECT_TRUE(hearsFeatureChanges());

    client.set(nullptr);
    EXPECT_TRUE(first.expired());
    EXPECT_FALSE(hearsFeatureChanges());

    // Where nobody else holds it, it goes when the next has registered its closures.
    mManager.published.set(nullptr);
    ASSERT_EQ(AIDL_REGISTER_IVela(), 0);
    EXPECT_FALSE(hearsFeatureChanges());
}

TEST_F(EntryTest, ItsObjectsKeepClientsThatWereDeadWhenTheyRegistered) {
    ASSERT_EQ(AIDL_REGISTER_IVela(), 0);
    std::shared_ptr<IVelaComposerClient> composer;
    EXPECT_TRUE(gDefaultInstance->createComposerClient(&composer).isOk());
    VelaDefault& service = *gDefaultInstance;
    EXPECT_EQ("ok", told(service.registerCallback(1, make<vts::Callback>(hear("a")))));
    EXPECT_EQ("ok", told(service.registerSoftVelaClient(1, make<vts::SoftClient>(hear("b")))));
    EXPECT_EQ("ok", told(composer->registerCallback(make<vts::Compositor>(hear("c")))));
    library().featureChanged(0, {});
    (void)library().softSetConfig(0, 0, {});
    library().refreshRequested(0);
    EXPECT_EQ(heard(), "a(0 {})b(0 0 {})c(0)");
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
