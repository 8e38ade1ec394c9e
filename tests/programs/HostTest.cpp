#include <signal.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;

class HostTest : public ProgramsTest {};

TEST_F(HostTest, EndsCleanlyOnBothSignals) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto host = startHost();
        ASSERT_NE(host, nullptr);
        EXPECT_EQ(velactl({"dump"}).code, 0);
        EXPECT_EQ(stop(host.get(), signal), 0) << host->errors();
        EXPECT_EQ(velactl({"info"}).code, 3);
    }
}

TEST_F(HostTest, SaysInOneLineWhatIsWrong) {
    struct Case {
        Arguments arguments;
        int code;
        std::string text;
    };
    const std::string symbolless = libraryFolder() + "/libvelaservice.so";
    const std::string refusing = libraryFolder() + "/refusing_entry.so";
    const Case cases[] = {
            {{"--library", "/nowhere/impl.so"}, 1, "/nowhere/impl.so"},
            {{"--library", symbolless}, 1, "has no entry AIDL_REGISTER_IVela"},
            {{"--library", refusing}, 1, "AIDL_REGISTER_IVela returned 1"},
            {{"--trace", "/nowhere/trace.json"}, 1, "/nowhere/trace.json"},
            {{"--frames", "/nowhere"}, 2, "--frames"},
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
}

TEST_F(HostTest, ServesWithoutAChip) {
    const auto host = startHost({"--chip", "absent"});
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(velactl({"dump"}).out, "Vela service library loaded failed");
    const Result get = velactl({"vela", "velaConfigureGet", "1", "[]"});
    EXPECT_EQ(get.code, 1);
    EXPECT_EQ(Json::parse(get.out)["error"]["code"], -1);
    const Result composer = velactl({"composer", "present", "0"});
    EXPECT_EQ(composer.code, 1);
    EXPECT_EQ(Json::parse(composer.out)["error"]["kind"], "transport");
}

TEST_F(HostTest, ServesWithOneThread) {
    const auto host = startHost({"--threads", "0"});
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(answer({"composer", "getOsdStatus", "2"}), 0);
}

TEST_F(HostTest, TracesTheChipsCalls) {
    const std::filesystem::path trace = mFolder / "trace.json";
    const auto host = startHost({"--trace", trace});
    ASSERT_NE(host, nullptr);
    answer({"vela", "velaConfigureSet", "1", "[2]"});
    answer({"composer", "present", "0"});
    ASSERT_EQ(stop(host.get(), SIGTERM), 0);

    const Json spans = Json::parse(std::ifstream(trace), nullptr, false);
    ASSERT_TRUE(spans.is_array());
    std::set<std::string> names;
    for (const Json& span : spans) {
        names.insert(span.at("name"));
        EXPECT_EQ(span.at("ph"), "X");
        EXPECT_GE(span.at("dur"), 0);
        EXPECT_GT(span.at("tid"), 0);
    }
    EXPECT_THAT(names, IsSupersetOf({"velaConfigureSet", "Present"}));
}

TEST_F(HostTest, WritesPresentedFrames) {
    const std::filesystem::path frames = mFolder / "frames";
    std::filesystem::create_directory(frames);
    const auto host = startHost({"--frames", frames});
    ASSERT_NE(host, nullptr);
    const Result session = velactl({"session", "-"},
                                   "composer buildLayerStack 0 {\"layers\":[{},{}]}\n"
                                   "composer commitLayerStack 0 0\n"
                                   "composer present 0\n");
    EXPECT_EQ(session.out, "null\n0\n1\n") << session.errors;
    const Json frame = Json::parse(std::ifstream(frames / "frame-000001.json"), nullptr, false);
    EXPECT_TRUE(frame.is_object());
}

}  // namespace
