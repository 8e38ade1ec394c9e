#include <signal.h>

#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class MonitorTest : public ProgramsTest {};

TEST_F(MonitorTest, PrintsAndAnswersEventsUntilInterrupted) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const struct {
        Arguments options;
        const char* batch;
        const char* answer;
        const char* line;
    } cases[] = {
            {{"--id", "-5"},
             "feature 7 1 -2",
             "",
             R"({"event":"feature","feature":7,"values":[1,-2]})"},
            {{"--soft", "--soft-result", "-4"},
             "soft-set 11 12 13",
             "-> -4",
             R"({"event":"soft-set","id":11,"config":12,"values":[13],"answer":-4})"},
            {{"--soft", "--soft-values", "[6,7]"},
             "soft-get 11 12 13",
             "[6,7]",
             R"({"event":"soft-get","id":11,"config":12,"values":[13],"answer":[6,7]})"},
            {{"--composer", "--config-result", "[21,22]"},
             "config 1 2 3",
             "[21,22]",
             R"({"event":"config","display":1,"config":2,"values":[3],"answer":[21,22]})"},
            {{"--composer", "--samples", R"({"value1":31,"list4":[32,33]})"},
             "sample 0 4 5",
             "-> 31",
             R"({"event":"sampling","display":0,"value1":4,"value2":5,"answer":)"
             R"({"value1":31,"list1":[],"list2":[],"list3":[],"list4":[32,33]}})"},
            {{"--composer"}, "refresh 2", "", R"({"event":"refresh","display":2})"},
            {{"--composer"}, "power 0 1", "", R"({"event":"power","display":0,"mode":1})"},
    };
    for (const auto& it : cases) {
        const auto monitor = startMonitor(it.options);
        ASSERT_NE(monitor, nullptr);
        EXPECT_THAT(batch(it.batch + std::string("; wait; last")), HasSubstr(it.answer));
        EXPECT_EQ(nextJson(monitor.get()), Json::parse(it.line));
        EXPECT_EQ(stop(monitor.get(), &it == cases ? SIGINT : SIGTERM), 0) << monitor->errors();
    }
    // Nobody is asked any more, which the chip sees as -1; a dead client would give 0.
    EXPECT_THAT(batch("soft-get 11 12; wait; last"), HasSubstr("-> -1 []"));
}

TEST_F(MonitorTest, EndsWithItsReaderOrTheService) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    for (const std::string command : {"monitor", "watch"}) {
        const std::string read = programFolder() + "/velactl " + command + " | head -n 1";
        EXPECT_EQ(runProgram("/bin/sh", {"-c", read}).code, 0);
    }
    const auto monitor = startMonitor({"--soft", "--composer"});
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(stop(host.get(), SIGKILL), -SIGKILL);
    EXPECT_EQ(monitor->wait(), 3);
    EXPECT_THAT(monitor->errors(), HasSubstr("died"));
}

}  // namespace
