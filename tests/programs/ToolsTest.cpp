#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** Recording, replaying, comparing, watching: each through the programs. */
class ToolsTest : public ProgramsTest {
  protected:
    static std::string read(const std::filesystem::path& file) {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(mFolder / name) << text;
        return mFolder / name;
    }

    static std::vector<std::string> linesOf(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    /** Records a monitor, which answers events, and a client with a bit of everything. */
    void record(const Arguments& options = {}) {
        Arguments all{"--record", mRecording, "--journal", mFolder / "journal"};
        all.insert(all.end(), options.begin(), options.end());
        const auto host = startHost(all);
        ASSERT_NE(host, nullptr);
        const auto monitor = startMonitor({"--composer", "--soft", "--config-result", "[5,6]",
                                           "--samples", R"({"value1":3,"list2":[7]})"});
        ASSERT_NE(monitor, nullptr);
        batch("config 0 1 2; sample 0 4 5; soft-set 1 2; wait");
        batch("refresh 0; power 0 1; feature 9 8; wait");
        const std::string file = write("buffer", "0123456789abcdef");
        const Result session = velactl({"session", "-"},
                                       "vela velaConfigureSet 300 [1,2]\n"
                                       "vela velaConfigureGet 300 []\n"
                                       "vela velaConfigureBuffer 7 -1 \"" +
                                               file +
                                               "\" 16\n"
                                               "composer setColorTransform [\"NaN\"]\n"
                                               "composer createLayer 0 1\n"
                                               "composer createLayer 9 2\n"
                                               "composer buildLayerStack 0 {\"layers\":[{},{}]}\n"
                                               "composer commitLayerStack 0 0\n"
                                               "composer present 0\n"
                                               "vela present 0\n"
                                               "expect error service-specific -2\n");
        EXPECT_EQ(session.code, 0) << session.errors;
        batch("refresh 1; wait");
        EXPECT_EQ(stop(monitor.get(), SIGTERM), 0);
        EXPECT_EQ(stop(host.get(), SIGINT), 0) << host->errors();
    }

    /** Replays before a host of those options, which ends after it. */
    static Result replay(const std::string& file, const Arguments& hostOptions = {},
                         bool update = false) {
        const auto host = startHost(hostOptions);
        if (host == nullptr) return {};
        const Result result =
                velactl(update ? Arguments{"replay", "--update", file} : Arguments{"replay", file});
        EXPECT_EQ(stop(host.get(), SIGTERM), 0) << host->errors();
        return result;
    }

    void SetUp() override {
        ProgramsTest::SetUp();
        mRecording = mFolder / "recording";
    }

    std::string mRecording;
};

TEST_F(ToolsTest, ReplaysWhatItRecorded) {
    record();
    const std::string recording = read(mRecording);
    EXPECT_THAT(recording, HasSubstr(R"("arguments":[7,-1,{"kind":"file","size":16},16])"));
    EXPECT_THAT(recording,
                HasSubstr(R"("interface":"composerCallback 1","event":"onConfigChanged",)"
                          R"("arguments":[0,1,[2]],"status":"ok","answer":[5,6],"took":)"));
    EXPECT_THAT(recording, HasSubstr(R"("refused":["EINVAL: display 9 is not there"])"));

    const Result same = replay(mRecording, {"--journal", mFolder / "first"});
    EXPECT_EQ(same.code, 0) << same.errors << same.out;
    EXPECT_THAT(same.out, HasSubstr("requests and 7 events: all answers as recorded"));
    EXPECT_EQ(replay(mRecording, {"--journal", mFolder / "second"}).code, 0);
    EXPECT_EQ(read(mFolder / "first"), read(mFolder / "second"));
    EXPECT_THAT(read(mFolder / "first"),
                HasSubstr(R"({"event":"contentSampling","arguments":[0,4,5],"answer":{"value1":3,)"
                          R"("list1":[],"list2":[7],"list3":[],"list4":[]}})"));

    const Arguments fault{"--fault", "CommitLayerStack=77", "--fault", "CreateLayer=EIO"};
    const Result other = replay(mRecording, fault);
    EXPECT_EQ(other.code, 1);
    EXPECT_THAT(other.out, HasSubstr("composer 2 createLayer [0,1]\n  refused was null\n"
                                     "  refused is  [\"EIO: by a fault\"]\n"
                                     "replayed 20 requests and 7 events: 4 differences\n"));
    EXPECT_EQ(other.errors, "") << "it differs late";
    EXPECT_THAT(replay(mRecording, {"--fault", "velaConfigureSet=7"}).errors,
                HasSubstr("is the service fresh?"));
    // Whom a client that is gone had registered hears nothing any more.
    const std::string gone = write("gone",
                                   R"({"recording":1}
{"n":1,"client":1,"interface":"vela","operation":"registerCallback","arguments":[7,{"callback":1}],"status":"ok","answer":null}
{"n":2,"client":1,"gone":"callback 1"}
{"n":3,"client":2,"interface":"vela","operation":"velaConfigureSet","arguments":[300,[1]],"status":"ok","answer":0}
{"end":3,"open":[]}
)");
    EXPECT_EQ(replay(gone).code, 0);
    EXPECT_EQ(replay(mRecording, fault, true).code, 0);
    EXPECT_EQ(replay(mRecording, fault).code, 0) << "these are the answers now";
}

TEST_F(ToolsTest, RefusesBrokenRecordings) {
    record();
    const std::vector<std::string> good = linesOf(read(mRecording));
    const auto replayWith = [&](size_t line, const std::string& text) {
        std::string edited;
        for (size_t i = 0; i < good.size(); ++i) {
            edited += i + 1 == line ? text : good[i] + "\n";
        }
        return replay(write("edited", edited));
    };
    const struct {
        size_t line;
        const char* text;
        const char* error;
    } cases[] = {
            {1, "{}\n", "edited:1: not a recording"},
            {1, "{\"recording\":1,\"interface\":\"other\"}\n",
             "edited:1: a recording of \"other\","},
            {3, "{\"n\":2,\"n\":2}\n", "edited:3: the key \"n\" stands twice"},
            {3, "{\"n\":\n", "edited:3: not JSON"},
            {3, "5\n", "edited:3: not a JSON object"},
            {3, "", "edited:3: the line of number 2 is missing before this one"},
            {4, "{\"n\":3,\"client\":1,\"interface\":\"vela\",\"operation\":\"fly\"}\n",
             "edited:4: vela has no operation fly"},
            {4,
             "{\"n\":3,\"client\":1,\"interface\":\"composer 9\",\"operation\":\"present\","
             "\"arguments\":[0],\"status\":\"ok\",\"answer\":1}\n",
             "edited:4: composer 9 appears nowhere before"},
    };
    for (const auto& it : cases) {
        const Result result = replayWith(it.line, it.text);
        EXPECT_EQ(result.code, 2) << it.error;
        EXPECT_THAT(result.errors, HasSubstr(it.error));
    }
    EXPECT_THAT(velactl({"replay", write("none", good[0] + "\n{\"end\":0,\"open\":[]}\n")}).errors,
                HasSubstr("there is no request in it"));
    // As a crash leaves it: the last whole line counts.
    const std::string whole = read(mRecording);
    const size_t cut = whole.find("setColorTransform");
    const Result shortened = replay(write("cut", whole.substr(0, cut)));
    EXPECT_EQ(shortened.code, 0) << shortened.errors << shortened.out;
    EXPECT_THAT(shortened.errors, HasSubstr("ends here, without its last line"));
}

TEST_F(ToolsTest, ComparesTwoBuilds) {
    record();
    const std::string build = std::filesystem::path(programFolder()).parent_path();
    setenv("VELA_BIN", programFolder().c_str(), 1);
    const auto compare = [&](const std::string& b) {
        return runProgram(SOURCE_FOLDER "/scripts/compare-builds", {build, b, mRecording});
    };
    const Result same = compare(libraryFolder() + "/vendor.lumenforge.hardware.display-impl.so");
    EXPECT_EQ(same.code, 0) << same.errors;
    EXPECT_THAT(same.out, StartsWith("The same: "));

    std::filesystem::create_directories(mFolder / "bin");
    const std::string worse =
            write("bin/velahost", "#!/bin/sh\nexec " + programFolder() +
                                          "/velahost --fault CommitLayerStack=-5 \"$@\"\n");
    std::filesystem::permissions(worse, std::filesystem::perms::owner_all);
    const Result differs = compare(mFolder);
    EXPECT_EQ(differs.code, 1) << differs.errors;
    EXPECT_THAT(differs.out, HasSubstr("answer was 0\n  answer is  -5\n"));
    EXPECT_THAT(differs.out, HasSubstr("The journals differ from line "));
    EXPECT_EQ(compare("/nowhere").code, 2);
}

TEST_F(ToolsTest, SpoilsCallsAsTold) {
    const auto host = startHost(
            {"--fault", "velaConfigureGet=EIO@2", "--fault", "velaConfigureBatch=silent", "--fault",
             "updateDisplayBrightness=twice", "--fault", "PresentDisplay=delay:1"});
    ASSERT_NE(host, nullptr);
    const Result session =
            velactl({"session", "-"},
                    "repeat 2\n"
                    "vela velaConfigureGet 512 []\nexpect [4,1024,64]\n"
                    "vela velaConfigureGet 512 []\nexpect error service-specific -5\n"
                    "end\n"
                    "composer configureValues 512 []\nexpect [4,1024,64]\n"
                    "composer configureValues 512 []\n"
                    "expect error service-specific -5\n"
                    "composer configureBatch 0 \"get 1\"\n"
                    "expect error service-specific -1\n"
                    "composer updateDisplayBrightness 0 5 []\nexpect [0,0,0,0]\n"
                    "composer presentDisplay 0\nexpect -61\n");
    EXPECT_EQ(session.code, 0) << session.errors;
}

TEST_F(ToolsTest, RunsTheSessionsThatComeWithIt) {
    for (const char* const folder : {"/sessions", "/testdata/sessions"}) {
        for (const auto& file :
             std::filesystem::directory_iterator(std::string(SOURCE_FOLDER) + folder)) {
            const bool isAbsent = file.path().filename() == "without-library";
            const auto host = startHost({"--chip", isAbsent ? "absent" : "simulated"});
            ASSERT_NE(host, nullptr);
            const bool isTwice = std::string(folder) == "/sessions";
            for (int i = 0; i < (isTwice ? 2 : 1); ++i) {
                const Result session = velactl({"session", file.path()});
                EXPECT_EQ(session.code, 0) << session.errors;
                if (isTwice) EXPECT_EQ(session.errors, "");
            }
            stop(host.get(), SIGTERM);
        }
    }
}

TEST_F(ToolsTest, SaysWhereASessionFails) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const struct {
        const char* commands;
        int code;
        const char* error;
    } cases[] = {
            {"vela present 0\nvela unknown\n", 1, "s:1: present: service-specific error -2"},
            {"\nnothing present 0\n", 2, "s:2: no command 'nothing'; there are vela,"},
            {"\x1b[31m\n", 2, "s:1: no command '\\x1b[31m'"},
            {"vela velaConfigureSet 600 [1]\nexpect EPERM\nexpect refusals 1\nexpect refusals 1\n",
             1, "s:4: expected refusals 1, came 0"},
            {"vela velaConfigureBatch 1 \"get 512\"\nexpect like \"get *: \"\n", 1,
             "s:2: expected like \"get *: \", came ok, \"get 512: [4,1024,64]"},
            {"vela velaConfigureBatch 1 \"get 512\"\nexpect like \"g*: [*]\\n\"\nexpect 1\n", 1,
             "s:3:"},
            {"try composer createLayer 9 1\ncomposer createLayer 9 1\nvela present 0\n", 1,
             "s:2: createLayer: refused: EINVAL: display 9 is not there"},
            {"try vela present 0\nexpect error service-specific ENOENT\nexit\nnothing\nend\n", 0,
             ""},
            {"expect ok\n", 2, "s:1: expect follows an operation"},
            {"repeat 2\nsleep 1\n", 2, "s:1: repeat without end"},
            {"sleep soon\n", 2, "s:1: usage: sleep MS"},
            {"vela present 0\nexpect ok\n", 1, "s:2: expected ok, came service-specific error -2"},
            {"composer getOsdStatus 0\nexpect error service-specific -2\n", 1, "came ok, 0"},
            {"composer getCurrentConfig 0\nexpect {\"value2\":1080}\nexpect {\"list1\":[0,1]}\n", 1,
             "s:3: expected {\"list1\":[0,1]} (answer.list1 differs), came ok, {"},
    };
    for (const auto& it : cases) {
        const Result result = velactl({"session", write("s", it.commands)});
        EXPECT_EQ(result.code, it.code) << it.commands;
        EXPECT_THAT(result.errors, HasSubstr(it.error));
        EXPECT_LE(std::ranges::count(result.errors, '\n'), 2) << result.errors;
    }
    EXPECT_EQ(velactl({"session", "-"}, "vela present 0\nlist\nlist\n").out, "");
    EXPECT_EQ(velactl({"session", "--check", SOURCE_FOLDER "/sessions/compositor"}).code, 0);
    const Result checked = velactl({"session", "--check", "-"},
                                   "vela present 0\nnothing\nvela velaConfigureSet 1\n"
                                   "expect refusals x\nrepeat 2\n");
    EXPECT_EQ(checked.code, 2);
    EXPECT_EQ(std::ranges::count(checked.errors, '\n'), 4) << checked.errors;
    EXPECT_THAT(checked.errors, HasSubstr("stdin:5: repeat without end"));
    const Result whole = velactl({"session", "--keep-going", "-"},
                                 "vela present 0\nvela unknown\n composer getOsdStatus 2\r\n"
                                 "composer setPanelName 0 \"two  words [\"\n");
    EXPECT_EQ(whole.code, 1);
    EXPECT_EQ(whole.out, "0\nnull\n");
    EXPECT_THAT(velactl({"dump"}).out, HasSubstr("two  words ["));
}

TEST_F(ToolsTest, SumsASessionUpForACi) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const std::string session =
            write("s",
                  "repeat 2\nvela velaConfigureSet 600 [1]\nexpect EPERM\nend\n"
                  "composer createLayer 9 1\nexpect {\"a<b\":1}\nvela present 0\n");
    const Arguments options{"session", "--summary", "--keep-going", "--junit", mFolder / "j.xml"};
    Arguments all = options;
    all.push_back(session);
    const Result result = velactl(all);
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors,
                HasSubstr("s: 3 answers, 2 of 3 expectations met, 1 errors, 3 refusals\n"));
    const std::string junit = read(mFolder / "j.xml");
    EXPECT_THAT(junit, HasSubstr("tests=\"3\" failures=\"2\""));
    EXPECT_THAT(junit, HasSubstr("name=\"3: expect EPERM\"/>"));
    EXPECT_THAT(junit, HasSubstr("<failure message=\"expected {&quot;a&lt;b&quot;:1}"));
    EXPECT_EQ(velactl({"session", "--fail-on-refusal", "-"}, "composer createLayer 9 1\n").code, 1);
}

TEST_F(ToolsTest, DrawsFramesAndTracesThem) {
    const std::filesystem::path frames = mFolder / "deep" / "frames";
    const std::filesystem::path trace = mFolder / "trace.json";
    const auto host = startHost({"--frames", frames, "--trace", trace});
    ASSERT_NE(host, nullptr);
    const auto monitor = startMonitor();
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(velactl({"session", SOURCE_FOLDER "/sessions/compositor"}).code, 0);
    EXPECT_EQ(nextJson(monitor.get())["event"], "feature");

    const Json frame = Json::parse(read(frames / "frame-000060.json"), nullptr, false);
    EXPECT_EQ(frame["frame"], 60);
    EXPECT_EQ(frame["layers"][1]["displayFrame"], Json({60, 240, 1020, 2040}));
    EXPECT_EQ(frame["stack"]["layers"][0]["buffer"], 10);
    const std::string shown = read(frames / "frame-000060.svg");
    EXPECT_THAT(shown, StartsWith("<svg xmlns="));
    EXPECT_THAT(shown, HasSubstr(">Frame 60 on display 0 (primary)<"));
    EXPECT_THAT(shown, HasSubstr(">changed: buffer<"));
    EXPECT_THAT(shown, HasSubstr(">z 9  ·  composition cursor  ·  transform none<"));
    EXPECT_THAT(shown, HasSubstr("frame 60,240 960x1800  ·  crop 0,0 1800x960  ·  buffer 22<"));
    EXPECT_THAT(read(frames / "frame-000001.svg"), Not(HasSubstr("changed:")));
    const std::string screenshot = mFolder / "shot.svg";
    EXPECT_EQ(velactl({"screenshot", screenshot}).code, 0);
    EXPECT_EQ(read(screenshot), shown);

    std::filesystem::create_symlink("/dev/full", frames / "frame-000061.json");
    EXPECT_EQ(answer({"composer", "present", "0"}), 1);
    EXPECT_THAT(host->errors(),
                HasSubstr("velahost: cannot write the frame to " +
                          (frames / "frame-000061.json").string() + ": No space left on device\n"));
    stop(monitor.get(), SIGTERM);
    EXPECT_EQ(stop(host.get(), SIGTERM), 1);
    const Json events = Json::parse(read(trace), nullptr, false);
    ASSERT_TRUE(events.is_array());
    const auto find = [&](const char* name, const char* key, const char* value) {
        const auto found = std::find_if(events.begin(), events.end(), [&](const Json& it) {
            return it["name"] == name && it.value(key, "") == value;
        });
        EXPECT_NE(found, events.end()) << name;
        return found == events.end() ? Json() : *found;
    };
    const Json request = find("IVelaComposerClient::present", "cat", "request");
    const Json call = find("Present", "cat", "chip");
    EXPECT_THAT(request["args"]["client"], StartsWith("velactl ("));
    EXPECT_EQ(request["tid"], call["tid"]);
    EXPECT_LE(request["ts"], call["ts"]);
    EXPECT_LE(call["ts"].get<double>() + call["dur"].get<double>(),
              request["ts"].get<double>() + request["dur"].get<double>());
    const Json event = find("featureChanged", "cat", "event");
    EXPECT_EQ(find("IVelaCallback::onFeatureChanged", "cat", "callback")["tid"], event["tid"]);
    EXPECT_EQ(find("IVelaCallback::onFeatureChanged", "cat", "client")["pid"], monitor->pid());
    EXPECT_EQ(find("event", "ph", "f")["tid"], event["tid"]) << "a flow leads to the event";
    EXPECT_EQ(find("thread_name", "ph", "M")["pid"], host->pid());
}

}  // namespace
