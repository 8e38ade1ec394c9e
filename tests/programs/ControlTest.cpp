#include <signal.h>

#include <fstream>
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
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.errors, HasSubstr(it.arguments[1] + ": " + it.kind + " error " +
                                             std::to_string(it.code)));
        Arguments asJson = it.arguments;
        asJson.insert(asJson.begin(), "--json");
        const Json error = Json::parse(velactl(asJson).errors, nullptr, false)["error"];
        EXPECT_EQ(error["kind"], it.kind);
        EXPECT_EQ(error["code"], it.code);
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
    EXPECT_EQ(velactl({"list"}).code, 0);
}

}  // namespace
