#include <signal.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>

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
    EXPECT_THAT(velactl({"describe", "setpowermod"}).errors,
                HasSubstr("(did you mean setPowerMode?)"));
    EXPECT_THAT(velactl({"describe", "setPowerMode"}).out, HasSubstr("2 on, 3 doze-suspend"));
}

TEST_F(ControlTest, RefusesWrongUsageBeforeItTouchesTheService) {
    struct Case {
        Arguments arguments;
        std::string text;
    };
    const Case cases[] = {
            {{}, "a subcommand is missing"},
            {{"unknown"}, "no subcommand 'unknown'; there are info, list,"},
            {{"info", "extra"}, "extra"},
            {{"sesion"}, "no subcommand 'sesion' (did you mean session?)"},
            {{"vela"}, "needs an operation"},
            {{"vela", "setPanelName", "0", "\"x\""}, "no operation setPanelName; velactl list"},
            {{"composer", "createLayr", "0", "1"}, "createLayr (did you mean createLayer?)"},
            {{"composer", "setPanelName", "0", "outdoor"},
             "a string needs its quotes: '\"outdoor\"'"},
            {{"composer", "setPowerMode", "0", "On", "true"}, "not JSON: On"},
            {{"composer", "setLayerSourceCrop", "0", "1", R"({"top":1,"top":2})"},
             "the key \"top\" stands twice"},
            {{"vela", "velaConfigureSet", "1"}, "takes 2 arguments, not 1"},
            {{"vela", "velaConfigureSet", "1", std::string(60000, '[') + std::string(60000, ']')},
             "nested too deep: [["},
            {{"vela", "velaConfigureSet", "1", "[1"}, "not JSON: [1"},
            {{"vela", "velaConfigureSet", "2147483648", "[]"}, "type: expected an integer"},
            {{"vela", "velaConfigureSet", "1", "[1,2.5]"}, "values: element 1: expected an"},
            {{"vela", "velaConfigureSet", "1", "7"}, "values: expected an array"},
            {{"vela", "velaConfigureBatch", "1", "7"}, "request: expected a string"},
            {{"vela", "registerCallback", "1", "{}"}, "callback: expected null"},
            {{"vela", "initialize", R"({"value6":1})"},
             "value6: DisplayConfigVariableInfo has no such"},
            {{"vela", "initialize", R"({"list1":[true]})"}, "list1: element 0"},
            {{"vela", "panelReadWrite", "1", "0", "0", "true", "[]", "0"}, "first: expected true"},
            {{"vela", "panelReadWrite", "true", "0", "0", "true", "[256]", "0"}, "from 0 to 255"},
            {{"vela", "velaConfigureBuffer", "1", "0", "\"/nowhere\"", "1"}, "cannot open"},
            {{"vela", "velaConfigureBuffer", "1", "0", "{\"file\":\"x\"}", "1"}, "expected a path"},
            {{"composer", "configureValues", "\"NO_SUCH\"", "[]"}, "no such enumerator"},
            {{"composer", "setColorTransform", "[1e39]"}, "that a float can hold"},
            {{"session", "/nowhere"}, "cannot read"},
            {{"session", "/tmp"}, "cannot read /tmp; a session is a file"},
            {{"session", ""}, "cannot read ''"},
            {{"screenshot", "x.png"}, "screenshots are SVG, not png; name it x.svg"},
            {{"monitor", "--samples", "[]"}, "--samples: expected an object"},
            {{"monitor", "--id", "x"}, "--id"},
            {{"watch", "--operation", "onRefresh"}, "no operation or event onRefresh"},
    };
    for (const Case& it : cases) {
        const Result result = velactl(it.arguments);
        EXPECT_EQ(result.code, 2) << it.text;
        EXPECT_THAT(result.errors, HasSubstr(it.text));
        EXPECT_EQ(result.out, "") << it.text;
    }
}

TEST_F(ControlTest, ReportsErrorStatusesWithKindAndCode) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const Result result = velactl({"vela", "present", "0"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.errors, HasSubstr("present: service-specific error -2 (only a composer"));
    EXPECT_THAT(velactl({"screenshot", mFolder / "x.svg"}).errors,
                HasSubstr("display 0 shows no frame yet"));
    const Result asJson = velactl({"--json", "composer", "configureVelaHdrMode", "1"});
    const Json error = Json::parse(asJson.errors, nullptr, false)["error"];
    EXPECT_EQ(error["kind"], "transport");
    EXPECT_EQ(error["code"], INT32_MIN);
}

TEST_F(ControlTest, TellsWhatTheChipRefusesAndWhy) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const struct {
        Arguments arguments;
        int code;
        std::string out;
        std::string errors;
    } cases[] = {
            {{"composer", "createLayer", "9", "7"},
             0,
             "null\n",
             "velactl: createLayer: refused: EINVAL: display 9 is not there\n"},
            {{"composer", "--fail-on-refusal", "setLayerTransform", "0", "7", "rotate-90"},
             1,
             "null\n",
             "velactl: setLayerTransform: refused: EINVAL: layer 7 is not there\n"},
            {{"vela", "velaConfigureSet", "600", "[1]"},
             0,
             "-1\n",
             "velactl: velaConfigureSet: refused: EPERM: register 600 is fixed\n"},
            {{"vela", "velaConfigureGet", "7", "[]"},
             1,
             "",
             "velactl: velaConfigureGet: service-specific error -2 (ENOENT: register 7 holds "
             "nothing)\n"},
            {{"vela", "velaConfigureBatch", "1", R"("get 512\npower 1")"},
             1,
             "",
             "velactl: velaConfigureBatch: service-specific error -22 (EINVAL: batch line 2: "
             "usage: power DISPLAY MODE)\n"},
            {{"composer", "--fail-on-refusal", "createLayer", "primary", "7"}, 0, "null\n", ""},
    };
    for (const auto& it : cases) {
        const Result result = velactl(it.arguments);
        EXPECT_EQ(result.code, it.code) << it.errors;
        EXPECT_EQ(result.out, it.out);
        EXPECT_EQ(result.errors, it.errors);
    }
}

TEST_F(ControlTest, SaysThatAFullDiskIsFull) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(velactl({"session", SOURCE_FOLDER "/sessions/compositor"}).code, 0);
    for (const std::string arguments :
         {"info", "list", "dump", "vela velaConfigureGet 512 []", "monitor", "screenshot -",
          "--help", "session --junit /dev/full /dev/null", "screenshot /dev/full"}) {
        const Result result = runProgram(
                "/bin/sh", {"-c", programFolder() + "/velactl " + arguments + " >/dev/full"});
        EXPECT_EQ(result.code, arguments.ends_with("full") || arguments.ends_with("null") ? 2 : 1)
                << arguments;
        EXPECT_THAT(result.errors, HasSubstr(": No space left on device\n")) << arguments;
    }
    EXPECT_THAT(runProgram("/bin/sh", {"-c", programFolder() + "/velactl info >&-"}).errors,
                HasSubstr("cannot write to stdout: Bad file"));
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

TEST_F(ControlTest, SaysHowToMendTheRuntimeFolder) {
    std::filesystem::create_directory(mFolder / "binder");
    std::filesystem::permissions(mFolder / "binder", std::filesystem::perms(0755));
    for (const auto& [program, arguments] :
         {std::pair<std::string, Arguments>{"velactl", {"info"}}, {"velahost", {}}}) {
        const std::string folder = mFolder / "binder";
        EXPECT_EQ(runProgram(program, arguments).errors,
                  program + ": BINDER_RUNTIME_DIR " + folder +
                          " is open to other users; chmod 700 " + folder + "\n");
    }
}

TEST_F(ControlTest, SaysThatNoServiceAnswers) {
    for (const Arguments& arguments :
         {Arguments{"info"}, Arguments{"dump"}, Arguments{"monitor"},
          Arguments{"vela", "createComposerClient"}, Arguments{"composer", "present", "0"}}) {
        const Result result = velactl(arguments);
        EXPECT_EQ(result.code, 3) << arguments.front();
        EXPECT_THAT(result.errors, HasSubstr("no service is published as"));
    }
}

}  // namespace
