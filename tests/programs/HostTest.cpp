#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class HostTest : public ProgramsTest {};

TEST_F(HostTest, SaysInOneLineWhatIsWrong) {
    struct Case {
        Arguments arguments;
        int code;
        std::string text;
    };
    const std::string symbolless = libraryFolder() + "/libvelaservice.so";
    const std::string refusing = libraryFolder() + "/refusing_entry.so";
    const std::string made = mFolder / "made";
    const Case cases[] = {
            {{"--library", "/nowhere/impl.so"}, 1, "/nowhere/impl.so"},
            {{"--library", symbolless}, 1, "has no entry AIDL_REGISTER_IVela"},
            {{"--library", refusing}, 1, "AIDL_REGISTER_IVela returned 1"},
            {{"--trace", "/nowhere/trace.json"}, 1, "/nowhere/trace.json"},
            {{"--record", "/dev/full"}, 1, "the record to /dev/full: No space left on device"},
            {{"--record", made, "--journal", "/nowhere/j"}, 1, "/nowhere/j: No such file"},
            {{"--record", made, "--trace", made},
             2,
             made + " cannot hold the record and the trace"},
            {{"--journal-times"}, 2, "--journal-times requires --journal"},
            {{"--record-limit", "4K"}, 2, "--record-limit is of --record"},
            {{"--frames", "/proc/frames"}, 1, "cannot make /proc/frames"},
            {{"--fault", "Prezent=-5"}, 2, "\n  Present: a status (-22 or EINVAL), delay:MS"},
            {{"--fault", "Present=silent"}, 2, "Present takes a status"},
            {{"--fault", "CreateLayer=silent"}, 2, "CreateLayer takes a status"},
            {{"--fault", "velaConfigureGet=EFOO"}, 2, "velaConfigureGet takes a status"},
            {{"--fault", "velaConfigureGet=twice@0"}, 2, "@EVERY is a number from 1"},
            {{"--chip", "broken"}, 2, "--chip"},
            {{"--threads", "-1"}, 2, "--threads"},
            {{"--unknown"}, 2, "--unknown"},
    };
    for (const Case& it : cases) {
        const Result result = runProgram("velahost", it.arguments);
        EXPECT_EQ(result.code, it.code) << it.text;
        EXPECT_EQ(result.out, "") << it.text;
        EXPECT_THAT(result.errors, HasSubstr(it.text));
        if (it.code == 1) {
            EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1) << result.errors;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(made)) << "left by a host that could not serve";
}

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
    const std::string record = mFolder / "r.jsonl";
    const std::string journal = mFolder / "j";
    const std::string made = mFolder / "made.json";
    const std::string session = mFolder / "session";
    std::ofstream(session) << "repeat 100\ncomposer createLayer 0 1\nend\n";
    {
        const auto host = startHost({"--trace", mFolder / "t.json", "--record-limit", "4K"});
        ASSERT_NE(host, nullptr);
        const auto monitor = startMonitor({"--composer", "--soft", "--config-result", "[5]"});
        ASSERT_NE(monitor, nullptr);
        const struct {
            Arguments arguments;
            int code;
            std::string text;
        } cases[] = {
                {{"host", "fault", "setPowerMode=EIO", "velaConfigureGet=EIO"}, 0, ""},
                {{"host"}, 0, "t.json\nfault setPowerMode=EIO\nfault velaConfigureGet=EIO\n"},
                {{"vela", "velaConfigureGet", "512", "[]"}, 1, "-5"},
                {{"host", "fault", "fly=EIO"}, 2, "names no operation of the chip"},
                {{"host", "fault", "off"}, 0, ""},
                {{"host", "record", record, "--limit", "4096"}, 0, ""},
                {{"host", "journal", journal, "--limit", "4K", "--times"}, 0, ""},
                {{"host"}, 0, "journal " + journal + "\nrecord " + record + "\ntrace "},
                {{"vela", "velaConfigureGet", "512", "[]"}, 0, "[4,1024,64]"},
                {{"vela", "velaConfigureBatch", "0", R"("config 0 1 2; soft-get 1 2; wait")"},
                 0,
                 ""},
                {{"session", session}, 0, ""},
                {{"vela", "velaConfigureBatch", "0", R"("feature 3 1; wait")"}, 0, ""},
                {{"host", "record", made}, 2, "being written to " + record},
                {{"host", "trace", "off"}, 0, ""},
                {{"host", "trace", "off"}, 2, "no trace is being written"},
                {{"host", "trace", journal}, 2, "cannot hold the journal and the trace"},
                {{"host", "trace", "/dev/full"}, 1, "/dev/full: No space left on device"},
                {{"host", "trace", ""}, 2, "cannot write the trace to ''"},
                {{"host", "record", "off"}, 0, ""},
                {{"host"}, 0, "journal " + journal + "\n"},
        };
        for (const auto& it : cases) {
            const Result result = velactl(it.arguments);
            EXPECT_EQ(result.code, it.code) << result.errors;
            EXPECT_THAT(result.out + result.errors, HasSubstr(it.text));
        }
        EXPECT_EQ(stop(monitor.get(), SIGTERM), 0);
        EXPECT_EQ(stop(host.get(), SIGTERM), 0) << host->errors();
    }
    EXPECT_FALSE(std::filesystem::exists(made));
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
