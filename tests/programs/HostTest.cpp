#include <signal.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class HostTest : public ProgramsTest {};

TEST_F(HostTest, ServesWithOneThread) {
    const auto host = startHost({"--threads", "0"});
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(answer({"composer", "getOsdStatus", "2"}), 0);
}

TEST_F(HostTest, ServesAloneAndEndsTheOneThatItReplaces) {
    const auto first = startHost();
    ASSERT_NE(first, nullptr);
    const auto second = startHost({"--replace", "--chip", "absent"});
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->wait(), 0) << first->errors();
    EXPECT_EQ(velactl({"dump"}).out, "Vela service library loaded failed");
    const Result third = runProgram("velahost", {});
    EXPECT_EQ(third.code, 1);
    EXPECT_THAT(third.errors, HasSubstr("velahost (" + std::to_string(second->pid()) +
                                        ") serves vendor.lumenforge.hardware.display.IVela"));
    const Result help = runProgram("velahost", {"--fault", "help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, HasSubstr("\n  Present: a status (-22 or EINVAL), delay:MS"));
}

TEST_F(HostTest, SwitchesWhatItWritesWhileItServes) {
    {
        const auto host = startHost({"--trace", mFolder / "t.json", "--record-limit", "4K"});
        ASSERT_NE(host, nullptr);
        const auto monitor = startMonitor({"--composer", "--soft", "--config-result", "[5]"});
        ASSERT_NE(monitor, nullptr);
        runCommands("switching");
        EXPECT_EQ(stop(monitor.get(), SIGTERM), 0);
        EXPECT_EQ(stop(host.get(), SIGTERM), 0) << host->errors();
    }
    EXPECT_FALSE(exists(mFolder / "made.json"));
    std::set<std::string> files;
    for (const auto& it : std::filesystem::directory_iterator(mFolder))
        files.insert(it.path());
    // The parts in their order make the state that each finds; each knows who had registered.
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    std::string events;  // how many each part has
    for (const std::string& file : files) {
        if (file.ends_with(".json")) {
            EXPECT_TRUE(Json::accept(std::ifstream(file))) << file;
        }
        if (!file.ends_with(".jsonl")) continue;
        const Result replay = velactl({"replay", file});
        EXPECT_THAT(replay.out, HasSubstr("all answers as recorded"));
        events += replay.out.substr(replay.out.rfind(" and ") + 5, 1);
    }
    EXPECT_THAT(events, testing::MatchesRegex("20+1"));
    EXPECT_TRUE(files.contains(mFolder / "j-000002"));
}

TEST_F(HostTest, ShowsWatchersWhatHappensAndWaitsForNone) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    Program refusals("velactl", {"--json", "watch", "--refusals", "--client", "velactl"});
    Program idle("velactl", {"--json", "watch", "--operation", "setPanelName"});
    EXPECT_EQ(nextJson(&refusals)["watching"], true);
    EXPECT_EQ(nextJson(&idle)["watching"], true);
    idle.sendSignal(SIGSTOP);
    EXPECT_EQ(answer({"composer", "createLayer", "0", "1"}), Json());
    EXPECT_EQ(answer({"composer", "createLayer", "9", "7"}), Json());
    const Json line = nextJson(&refusals);
    EXPECT_EQ(line["operation"], "createLayer");
    EXPECT_EQ(line["arguments"], Json({9, 7}));
    EXPECT_THAT(line["refused"].dump(), HasSubstr("EINVAL"));
    const std::string comment(8000, '#');  // more than any pipe holds
    const Result flood = velactl(
            {"session", "-"}, "repeat 300\nvela velaConfigureBatch 0 \"" + comment + "\"\nend\n");
    EXPECT_EQ(flood.code, 0) << flood.errors;
    idle.sendSignal(SIGCONT);
    Program more("velactl", {"session", "-"},
                 "repeat 100000\ncomposer setPanelName 0 \"x\"\nsleep 1\nend\n");
    Json lost = nextJson(&idle);
    while (lost.is_object() && !lost.contains("lost"))
        lost = nextJson(&idle);
    EXPECT_GT(lost.value("lost", 0), 0);
    more.sendSignal(SIGKILL);
    more.wait();
    EXPECT_EQ(stop(&idle, SIGINT), 0);
    EXPECT_EQ(stop(host.get(), SIGTERM), 0);
    EXPECT_EQ(refusals.wait(), 0) << refusals.errors();
}

}  // namespace
