#include <atomic>
#include <string>
#include <thread>

#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

class NamesTest : public testing::Test {
  protected:
    const ndk::SpAIBinder mBinder = ndk::SharedRefBase::make<TestPeer>()->asBinder();
};

TEST_F(NamesTest, NamesAreValidated) {
    for (const std::string& name :
         {std::string("a"), std::string(127, 'x'), std::string("aZ09_-./")}) {
        EXPECT_EQ(AServiceManager_addService(mBinder.get(), name.c_str()), EX_NONE) << name;
        EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService(name.c_str())), mBinder) << name;
    }
    for (const std::string& name : {std::string(), std::string(128, 'x'), std::string("a b"),
                                    std::string("\xc3\xa9"), std::string("a\n")}) {
        EXPECT_NE(AServiceManager_addService(mBinder.get(), name.c_str()), EX_NONE);
        EXPECT_EQ(AServiceManager_checkService(name.c_str()), nullptr);
    }
    EXPECT_NE(AServiceManager_addService(nullptr, "null"), EX_NONE);
}

TEST_F(NamesTest, LastOneAddedHasTheName) {
    const ndk::SpAIBinder other = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "replaced"), EX_NONE);
    ASSERT_EQ(AServiceManager_addService(other.get(), "replaced"), EX_NONE);
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService("replaced")), other);

    // The end of a process takes only the names that are still its own.
    PeerProcess replaced("replaced");
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "replaced"), EX_NONE);
    PeerProcess mark("mark");
    replaced.child.kill();
    mark.child.kill();
    EXPECT_TRUE(eventually(
            [] { return ndk::SpAIBinder(AServiceManager_checkService("mark")) == nullptr; }));
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService("replaced")), mBinder);
}

TEST_F(NamesTest, RegistrationsAreNotified) {
    static std::atomic<AIBinder*> seen{nullptr};
    const auto note = [](const char* instance, AIBinder* binder, void* cookie) {
        EXPECT_STREQ(instance, static_cast<const char*>(cookie));
        seen = binder;
    };
    static char name[] = "notified";
    auto* const registration = AServiceManager_registerForServiceNotifications(name, note, name);
    const ndk::SpAIBinder other = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    for (const ndk::SpAIBinder& binder : {mBinder, other}) {
        ASSERT_EQ(AServiceManager_addService(binder.get(), name), EX_NONE);
        EXPECT_TRUE(eventually([&] { return seen == binder.get(); }));
    }
    AServiceManager_NotificationRegistration_delete(registration);
}

TEST_F(NamesTest, EndedRegistrationIsNotNotified) {
    struct Registrations {
        AIBinder* binder;
        AServiceManager_NotificationRegistration* ended = nullptr;
        bool isNotified = false;
        std::atomic<bool> isMarked = false;
    } told{.binder = mBinder.get()};
    // Whoever is told first ends the next one, whose name has just come up, too.
    const auto end = [](const char*, AIBinder*, void* cookie) {
        auto& [binder, ended, isNotified, isMarked] = *static_cast<Registrations*>(cookie);
        EXPECT_EQ(AServiceManager_addService(binder, "ended"), EX_NONE);
        AServiceManager_NotificationRegistration_delete(ended);
        EXPECT_EQ(AServiceManager_addService(binder, "marked"), EX_NONE);
    };
    const auto note = [](const char*, AIBinder*, void* cookie) {
        static_cast<Registrations*>(cookie)->isNotified = true;
    };
    const auto mark = [](const char*, AIBinder*, void* cookie) {
        static_cast<Registrations*>(cookie)->isMarked = true;
    };
    auto* const first = AServiceManager_registerForServiceNotifications("ends", end, &told);
    told.ended = AServiceManager_registerForServiceNotifications("ended", note, &told);
    auto* const last = AServiceManager_registerForServiceNotifications("marked", mark, &told);
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "ends"), EX_NONE);
    EXPECT_TRUE(eventually([&] { return told.isMarked.load(); }));
    EXPECT_FALSE(told.isNotified);
    AServiceManager_NotificationRegistration_delete(first);
    AServiceManager_NotificationRegistration_delete(last);
}

TEST_F(NamesTest, WaitingEndsWhenTheNameAppears) {
    EXPECT_EQ(AServiceManager_checkService("awaited"), nullptr);
    ndk::SpAIBinder found[2];
    std::thread waiter([&] { found[0].set(AServiceManager_waitForService("awaited")); });
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    std::thread getter([&] { found[1].set(AServiceManager_getService("awaited")); });
#pragma clang diagnostic pop
    PeerProcess awaited("awaited");
    waiter.join();
    getter.join();
    EXPECT_EQ(found[0], awaited.peer->asBinder());
    EXPECT_EQ(found[1], awaited.peer->asBinder());
}

}  // namespace
}  // namespace platformtest
