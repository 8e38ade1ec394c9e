#include <signal.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <regex>
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
}

TEST_F(ControlTest, RefusesWrongUsage) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    struct Case {
        Arguments arguments;
        std::string text;
    };
    const Case cases[] = {
            {{}, "a subcommand is missing"},
            {{"unknown"}, "no subcommand 'unknown'; there are info, list,"},
            {{"info", "extra"}, "extra"},
            {{"vela"}, "needs an operation"},
            {{"vela", "setPanelName", "0", "\"x\""}, "no operation setPanelName"},
            {{"vela", "velaConfigureSet", "1"}, "takes 2 arguments, not 1"},
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
            {{"screenshot", "/tmp/x.svg"}, "display 0 shows no frame yet"},
            {{"monitor", "--samples", "[]"}, "--samples: expected an object"},
            {{"monitor", "--id", "x"}, "--id"},
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
    EXPECT_THAT(result.errors, HasSubstr("present: service-specific error -2"));
    const Result asJson = velactl({"--json", "composer", "configureVelaHdrMode", "1"});
    const Json error = Json::parse(asJson.errors, nullptr, false)["error"];
    EXPECT_EQ(error["kind"], "transport");
    EXPECT_EQ(error["code"], INT32_MIN);
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
