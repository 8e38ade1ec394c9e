#include <signal.h>

#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class MonitorTest : public ProgramsTest {};

TEST_F(MonitorTest, PrintsFeatureEventsUntilInterrupted) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto monitor = startMonitor({"--id", "-5"});
        ASSERT_NE(monitor, nullptr);
        batch("feature 7 1 -2; feature 8");
        EXPECT_EQ(nextJson(monitor.get()),
                  Json::parse(R"({"event":"feature","feature":7,"values":[1,-2]})"));
        EXPECT_EQ(nextJson(monitor.get()),
                  Json::parse(R"({"event":"feature","feature":8,"values":[]})"));
        EXPECT_EQ(stop(monitor.get(), signal), 0) << monitor->errors();
    }
}

TEST_F(MonitorTest, AnswersAsSoftClient) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const auto monitor = startMonitor({"--soft", "--soft-result", "-4", "--soft-values", "[6,7]"});
    ASSERT_NE(monitor, nullptr);
    const std::string set = batch("soft-set 11 12 13; wait; last");
    EXPECT_EQ(nextJson(monitor.get()),
              Json::parse(R"({"event":"soft-set","id":11,"config":12,"values":[13],"answer":-4})"));
    EXPECT_THAT(set, HasSubstr("-4"));
    const std::string get = batch("soft-get 11 12 13; wait; last");
    EXPECT_EQ(nextJson(monitor.get()),
              Json::parse(
                      R"({"event":"soft-get","id":11,"config":12,"values":[13],"answer":[6,7]})"));
    EXPECT_THAT(get, HasSubstr("[6,7]"));

    // Nobody is asked any more, which the chip sees as -1; a dead client would give 0.
    EXPECT_EQ(stop(monitor.get(), SIGTERM), 0);
    EXPECT_THAT(batch("soft-get 11 12; wait; last"), HasSubstr("-> -1 []"));
}

TEST_F(MonitorTest, AnswersAsCompositor) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const auto monitor = startMonitor({"--composer", "--config-result", "[21,22]", "--samples",
                                       R"({"value1":31,"list4":[32,33]})"});
    ASSERT_NE(monitor, nullptr);
    EXPECT_THAT(batch("config 1 2 3; wait; last"), HasSubstr("[21,22]"));
    EXPECT_EQ(nextJson(monitor.get()),
              Json::parse(R"({"event":"config","display":1,"config":2,"values":[3],)"
                          R"("answer":[21,22]})"));
    EXPECT_THAT(batch("sample 0 4 5; wait; last"), HasSubstr("31"));
    EXPECT_EQ(nextJson(monitor.get()),
              Json::parse(R"({"event":"sampling","display":0,"value1":4,"value2":5,"answer":)"
                          R"({"value1":31,"list1":[],"list2":[],"list3":[],"list4":[32,33]}})"));
    batch("refresh 2; power 0 1");
    EXPECT_EQ(nextJson(monitor.get()), Json::parse(R"({"event":"refresh","display":2})"));
    EXPECT_EQ(nextJson(monitor.get()), Json::parse(R"({"event":"power","display":0,"mode":1})"));
}

TEST_F(MonitorTest, EndsWhenTheServiceDies) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const auto monitor = startMonitor({"--soft", "--composer"});
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(stop(host.get(), SIGKILL), -SIGKILL);
    EXPECT_EQ(monitor->wait(), 3);
    EXPECT_THAT(monitor->errors(), HasSubstr("died"));
}

}  // namespace
