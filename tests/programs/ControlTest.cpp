#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class ControlTest : public ProgramsTest {};

TEST_F(ControlTest, TellsWhatServes) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const Json info = answer({"info"});
    EXPECT_EQ(info["instance"], "vendor.lumenforge.hardware.display.IVela/default");
    EXPECT_EQ(info["descriptor"], "vendor.lumenforge.hardware.display.IVela");
    EXPECT_EQ(info["version"], 2);
    std::string frozen;
    std::ifstream(FROZEN_HASH) >> frozen;
    EXPECT_EQ(info["hash"], frozen);
    EXPECT_EQ(frozen.size(), 40u);
    EXPECT_EQ(info["alive"], true);
}

TEST_F(ControlTest, ListsEveryOperationAndRecord) {
    const Result list = velactl({"list"});
    EXPECT_EQ(list.code, 0);
    const auto count = [](const std::string& text, const std::string& pattern) {
        const std::regex regex(pattern, std::regex::multiline);
        return std::distance(std::sregex_iterator(text.begin(), text.end(), regex), {});
    };
    for (const std::string name : {"", "ComposerClient"}) {
        std::ifstream file(INTERFACE_FOLDER "/IVela" + name + ".aidl");
        const std::string definition(std::istreambuf_iterator<char>(file), {});
        const std::string word = name.empty() ? "vela" : "composer";
        EXPECT_EQ(count(list.out, "^" + word + " .*\\)$"), count(definition, "\\);"));
    }
    EXPECT_THAT(list.out, HasSubstr("\nvela int present(long display)\n"));
    EXPECT_THAT(list.out,
                HasSubstr("\nrecord HwcRect {int left, int top, int right, int bottom}\n"));
    const Json json = answer({"--json", "list"});
    EXPECT_EQ(std::ranges::count(list.out, '\n'),
              json["vela"].size() + json["composer"].size() + json["records"].size());
    EXPECT_EQ(json["records"][0]["fields"][1], Json::parse(R"({"name":"top","type":"int"})"));
}

TEST_F(ControlTest, DescribesEveryOperationByAnExampleThatRuns) {
    const Json list = answer({"--json", "list"});
    std::set<std::string> missing;
    for (const Json& operation : list["composer"])
        missing.insert("composer " + operation["name"].get<std::string>());
    for (const Json& operation : list["vela"]) {
        const auto name = operation["name"].get<std::string>();
        if (!missing.contains("composer " + name)) missing.insert("vela " + name);
    }
    missing.insert("vela registerCallback");
    std::istringstream lines(velactl({"--json", "describe"}).out);
    std::string session;
    for (std::string line; std::getline(lines, line);) {
        const Json it = Json::parse(line, nullptr, false);
        std::string call =
                it["interface"].get<std::string>() + " " + it["operation"].get<std::string>();
        missing.erase(call);
        for (const Json& word : it["example"])
            call += " " + word.get<std::string>();
        const bool makes = call.starts_with("composer createLayer");
        session += std::string("try composer ") + (makes ? "destroy" : "create") + "Layer 0 7\n" +
                   call + "\n";
    }
    EXPECT_THAT(missing, testing::IsEmpty());
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const Result run = velactl({"session", "--keep-going", "-"}, session);
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("configureVelaHdrMode: transport error"));
    EXPECT_THAT(velactl({"describe", "setPowerMode"}).out, HasSubstr("2 on, 3 doze-suspend"));
}

TEST_F(ControlTest, SaysWhatIsWrongBeforeItTouchesTheService) {
    runCommands("usage");
}

TEST_F(ControlTest, TellsErrorsRefusalsAndFullDisks) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    runCommands("served");
}

TEST_F(ControlTest, CompletesWords) {
    const auto completed = [](const std::string& words) {
        return runProgram("/bin/bash",
                          {"-c", "source " SOURCE_FOLDER
                                 "/host/velactl/completion.bash; COMP_WORDS=(" +
                                         programFolder() + "/velactl " + words +
                                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _velactl; "
                                         "echo ${COMPREPLY[*]}"})
                .out;
    };
    EXPECT_EQ(completed("se"), "session\n");
    EXPECT_EQ(completed("session --j"), "--junit\n");
    EXPECT_EQ(completed("composer presentD"), "presentDisplay\n");
    EXPECT_EQ(completed("describe setPan"), "setPanelName\n");
}

}  // namespace
