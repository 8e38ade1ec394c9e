#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

/** Parts of recordings; no service is needed for them. What a page shows is in page-test. */
class RecordingTest : public ProgramsTest {
  protected:
    void SetUp() override {
        ProgramsTest::SetUp();
        mRecording = mFolder / "session.jsonl";
        const char* const lines[] = {
                R"("interface":"vela","operation":"createComposerClient","arguments":[],"answer":{"composer":1})",
                R"("interface":"vela","operation":"createComposerClient","arguments":[],"answer":{"composer":2})",
                R"("interface":"vela","operation":"registerCallback","arguments":[7,{"callback":1}])",
                R"("interface":"composer 1","operation":"createLayer","arguments":[0,7])",
                R"("interface":"composer 2","operation":"createLayer","arguments":[0,8])",
                R"("interface":"composer 1","operation":"buildLayerStack","arguments":[0,{}])",
                R"("interface":"composer 1","operation":"commitLayerStack","arguments":[0,1],"answer":0)",
                R"("interface":"composer 1","operation":"setLayerZOrder","arguments":[0,7,3])",
                R"("interface":"callback 1","event":"onFeatureChanged","arguments":[3,[60]])",
                R"("interface":"composer 1","operation":"present","arguments":[0],"answer":1)",
                R"("interface":"composer 2","operation":"setLayerZOrder","arguments":[0,8,1])",
                R"("gone":"composer 2")",
        };
        std::ofstream out(mRecording);
        out << R"({"recording":1})" << '\n';
        int number = 0;
        for (const char* const line : lines) {
            const bool hasAnswer = std::string(line).find("answer") != std::string::npos;
            ++number;
            out << R"({"client":1,"status":"ok","n":)" << number << R"(,"time":)" << number << ","
                << line
                << (hasAnswer ? "}\n"
                              : R"(,"answer":null})"
                                "\n");
        }
        out << R"({"end":12,"open":[]})" << '\n';
    }

    /** The numbers that the calls of a part had before; none for a part that is no recording. */
    std::vector<int> callsOf(const std::string& part) const {
        EXPECT_EQ(velactl({"page", part, "-o", mFolder / "page.html"}).code, 0) << part;
        std::vector<int> numbers;
        std::ifstream in(part);
        for (std::string line; std::getline(in, line);) {
            const Json json = Json::parse(line, nullptr, false);
            if (json.contains("time")) numbers.push_back(json["time"]);
        }
        return numbers;
    }

    std::string mRecording;
};

TEST_F(RecordingTest, TrimsToCallsAndWhatTheyNeed) {
    const struct {
        const char* from;
        const char* to;
        std::vector<int> calls;
    } cases[] = {
            {"8", "8", {1, 4, 8}},
            {"9", "9", {3, 9}},
            {"10", "10", {1, 6, 7, 10}},
            {"11", "99", {2, 5, 11, 12}},
    };
    for (const auto& it : cases) {
        EXPECT_EQ(velactl({"trim", mRecording, it.from, it.to}).code, 0);
        EXPECT_EQ(callsOf(mFolder / "session.trimmed.jsonl"), it.calls) << it.from;
    }
}

TEST_F(RecordingTest, ReducesToWhatStillFails) {
    const struct {
        const char* check;  // fails when it finds what it looks for
        std::vector<int> calls;
    } cases[] = {
            {R"(! grep -q '\[0,8,1\]' "{}")", {2, 11}},
            {R"(! grep -q onFeature "{}")", {3, 9}},
            {R"(! { grep -q '\[0,8\]' "{}" && grep -q gone "{}"; })", {2, 5, 12}},
            // Fails in another way without its first calls.
            {R"(grep -q '"composer":2' "{}" || exit 5; ! grep -q present "{}")", {1, 2, 10}},
    };
    for (const auto& it : cases) {
        const Result result = velactl({"reduce", mRecording, "--", "sh", "-c", it.check});
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_EQ(callsOf(mFolder / "session.reduced.jsonl"), it.calls) << it.check;
    }
    EXPECT_FALSE(exists(mFolder / "session.reduced.jsonl.try"));
}

TEST_F(RecordingTest, SaysWhatIsWrong) {
    const struct {
        Arguments arguments;
        const char* error;
    } cases[] = {
            {{"reduce", mRecording, "--", "true"}, "true ends with 0 for the whole"},
            {{"reduce", mRecording, "--", "/nowhere/check"}, "cannot run /nowhere/check: No such"},
            {{"reduce", mRecording, "--", "false"}, "false ends with 1 without any call, too"},
            {{"reduce", mRecording, "-o", mFolder, "--", "false"}, "it is no file"},
            {{"reduce", mRecording}, "COMMAND is required"},
            {{"trim", mRecording, "13", "14"}, "has no calls from 13 to 14"},
            {{"page", mFolder / "none"}, "cannot read "},
            {{"page", mRecording, "-o", "/nowhere/page.html"}, "cannot write /nowhere/page.html"},
    };
    for (const auto& it : cases) {
        const Result result = velactl(it.arguments);
        EXPECT_EQ(result.code, 2) << it.error;
        EXPECT_THAT(result.errors, HasSubstr(it.error));
    }
}

}  // namespace
