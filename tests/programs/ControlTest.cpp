#include <signal.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class ControlTest : public ProgramsTest {
  protected:
    static std::vector<Json> lines(const std::string& text) {
        std::vector<Json> parsed;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            parsed.push_back(Json::parse(line, nullptr, false));
        }
        return parsed;
    }
};

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

TEST_F(ControlTest, CarriesEveryKindOfValue) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const std::string file = mFolder / "buffer";
    std::ofstream(file) << "0123456789abcdef";
    const std::string stack =
            R"({"value1":3,"layers":[{"value2":300,"layerRect":{"right":10.5},)"
            R"("layerTransform":{"flag1":-128},"layerBuffer":{"colorMetaData":{"list1":[255]}}}]})";

    EXPECT_EQ(answer({"vela", "initialize", R"({"value4":3,"value1":1080,"value2":2400})"}),
              nullptr);
    EXPECT_EQ(answer({"vela", "velaConfigureSet", "7", "[1, -2, 3]"}), 0);
    EXPECT_EQ(answer({"vela", "velaConfigureGet", "7", "[]"}), Json({1, -2, 3}));
    EXPECT_EQ(answer({"composer", "configureValues", "7", "[]"}), Json({1, -2, 3}));
    EXPECT_GE(answer({"vela", "velaConfigureBuffer", "7", "-1", '"' + file + '"', "16"}), 0);
    EXPECT_EQ(answer({"composer", "configureBuffer", "7", "0", R"({"path":")" + file + "\"}", "8"}),
              nullptr);
    EXPECT_THAT(answer({"composer", "configureBatch", "\"STARTUP_BATCH\"", "\"get 7\""}).dump(),
                HasSubstr("[1,-2,3]"));
    EXPECT_EQ(answer({"composer", "buildLayerStack", "0", stack}), nullptr);
    EXPECT_EQ(answer({"composer", "setColorTransform", "[1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1.5]"}),
              0);
    EXPECT_EQ(answer({"composer", "setPowerMode", "0", "2", "false", "true"}), 0);
    EXPECT_EQ(answer({"composer", "getCurrentConfig", "0"}).size(), 26u);
    EXPECT_EQ(answer({"composer", "setPanelName", "0", R"("a \"new\" panel")"}), nullptr);
    EXPECT_THAT(velactl({"dump"}).out, HasSubstr("a \"new\" panel"));
    EXPECT_EQ(answer({"vela", "createComposerClient"})["interface"],
              "vendor.lumenforge.hardware.display.IVelaComposerClient");
    EXPECT_EQ(answer({"vela", "registerCallback", "9223372036854775807", "null"}), nullptr);
}

TEST_F(ControlTest, RefusesWrongUsage) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    struct Case {
        Arguments arguments;
        std::string text;
    };
    const Case cases[] = {
            {{}, "subcommand"},
            {{"unknown"}, "subcommand"},
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
            {{"monitor", "--samples", "[]"}, "--samples: expected an object"},
            {{"monitor", "--id", "x"}, "--id"},
    };
    for (const Case& it : cases) {
        const Result result = velactl(it.arguments);
        EXPECT_EQ(result.code, 2) << it.text;
        EXPECT_THAT(result.errors, HasSubstr(it.text));
    }
}

TEST_F(ControlTest, ReportsErrorStatusesWithKindAndCode) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    struct Case {
        Arguments arguments;
        std::string kind;
        int32_t code;
    };
    const Case cases[] = {
            {{"vela", "present", "0"}, "service-specific", -2},
            {{"composer", "configureBatch", "0", "\"nonsense\""}, "service-specific", -22},
            {{"composer", "configureVelaHdrMode", "1"}, "transport", -2147483647 - 1},
    };
    for (const Case& it : cases) {
        const Result result = velactl(it.arguments);
        EXPECT_EQ(result.code, 1);
        const Json error = Json::parse(result.out)["error"];
        EXPECT_EQ(error["kind"], it.kind);
        EXPECT_EQ(error["code"], it.code);
        EXPECT_THAT(result.errors, HasSubstr(it.arguments[1] + ": " + it.kind + " error " +
                                             std::to_string(it.code)));
    }
}

TEST_F(ControlTest, SaysThatNoServiceAnswers) {
    for (const Arguments& arguments :
         {Arguments{"info"}, Arguments{"dump"}, Arguments{"monitor"},
          Arguments{"vela", "createComposerClient"}, Arguments{"composer", "present", "0"}}) {
        const Result result = velactl(arguments);
        EXPECT_EQ(result.code, 3) << arguments.front();
        EXPECT_THAT(result.errors, HasSubstr("no service answers"));
    }
    EXPECT_EQ(velactl({"list"}).code, 0);
}

TEST_F(ControlTest, FindsARestartedHost) {
    auto host = startHost();
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(answer({"vela", "velaConfigureSet", "7", "[1]"}), 0);
    EXPECT_EQ(stop(host.get(), SIGKILL), -SIGKILL);
    EXPECT_EQ(velactl({"info"}).code, 3);
    host = startHost();
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(answer({"info"})["alive"], true);
}

TEST_F(ControlTest, RunsASessionAsOneClient) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const std::string commands =
            "# one composer client throughout\n"
            "\n"
            "composer createLayer 0 7\n"
            "vela velaConfigureSet 7 [4, 5]\r\n"
            "  composer configureValues 7 []\n"
            "composer setPanelName 0 \"two  words [\"\n";
    const std::string file = mFolder / "commands";
    std::ofstream(file) << commands;
    for (const Result& result : {velactl({"session", file}), velactl({"session", "-"}, commands)}) {
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_EQ(lines(result.out), (std::vector<Json>{nullptr, 0, Json({4, 5}), nullptr}));
    }
    EXPECT_THAT(velactl({"dump"}).out, HasSubstr("two  words ["));
}

TEST_F(ControlTest, StopsASessionAtTheFirstFailureUnlessToldToGoOn) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const std::string commands =
            "vela present 0\n"
            "vela unknown\n"
            "nothing present 0\n"
            "composer getOsdStatus 2\n";
    const Result stopped = velactl({"session", "-"}, commands);
    EXPECT_EQ(stopped.code, 1);
    EXPECT_EQ(lines(stopped.out).size(), 1u);

    const Result whole = velactl({"session", "--keep-going", "-"}, commands);
    EXPECT_EQ(whole.code, 1);
    const auto answers = lines(whole.out);
    ASSERT_EQ(answers.size(), 4u);
    EXPECT_EQ(answers[0]["error"]["code"], -2);
    EXPECT_EQ(answers[1]["error"]["kind"], "usage");
    EXPECT_EQ(answers[2]["error"]["kind"], "usage");
    EXPECT_EQ(answers[3], 0);
}

}  // namespace
