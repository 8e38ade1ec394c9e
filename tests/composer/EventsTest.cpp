#include "tests/composer/ComposerTest.h"

namespace {

using ndk::ScopedAStatus;

using EventsTest = ComposerTest;

TEST_F(EventsTest, ReachTheCallbackOfTheLastStartedClient) {
    EXPECT_EQ(raiseAll(), kNobody);
    add(*mClient, hear("1"));
    makeClient(nullptr);  // takes nothing
    EXPECT_EQ(raiseAll(), reach("1"));

    const auto second = makeClient(mService);
    EXPECT_EQ(raiseAll(), kNobody);
    // The first still serves requests, and its end takes nothing from the second.
    EXPECT_EQ("Present[] ok 0", through(*mClient, &C::present));
    mClient.reset();
    add(*second, hear("2"));
    EXPECT_EQ(raiseAll(), reach("2"));
}

TEST_F(EventsTest, WhatAFailingCallbackLeftCountsAndItStays) {
    for (const binder_status_t status : {STATUS_UNKNOWN_ERROR, STATUS_DEAD_OBJECT}) {
        add(*mClient, hear("1", [status] { return ScopedAStatus::fromStatus(status); }));
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(raiseAll(), reach("1"));
    }
}

TEST_F(EventsTest, SamplesOfANegativeNumberAreNone) {
    const auto callback = add(*mClient, vts::ignore);
    callback->answer = 0;
    EXPECT_EQ(samples(), R"({"value1":0,"list1":[1],"list2":[2,2],"list3":[3],"list4":[4]})");
    for (const int32_t number : {-1, -2}) {
        callback->answer = number;
        EXPECT_EQ("{}" + samples(), kNobody);
    }
}

}  // namespace
