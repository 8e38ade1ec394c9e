#include <signal.h>

#include <algorithm>
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
    EXPECT_EQ(replay(mRecording, fault, true).code, 0);
    EXPECT_EQ(replay(mRecording, fault).code, 0) << "these are the answers now";

    // As a crash leaves it: the last whole line counts.
    const Result cut =
            replay(write("cut", recording.substr(0, recording.find("setColorTransform"))));
    EXPECT_EQ(cut.code, 0) << cut.errors << cut.out;
    EXPECT_THAT(cut.errors, HasSubstr("ends here, without its last line"));
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

TEST_F(ToolsTest, LetsCallsGoWrongAsTold) {
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
