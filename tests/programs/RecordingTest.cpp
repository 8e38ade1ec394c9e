#include <filesystem>
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
        copy_file(SOURCE_FOLDER "/testdata/recordings/small.jsonl", mRecording);
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

    std::filesystem::path mRecording;
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

}  // namespace
