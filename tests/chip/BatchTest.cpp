#include <cerrno>
#include <string>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using BatchTest = SimulatedChipTest;

TEST_F(BatchTest, MalformedTextChangesNothing) {
    const std::pair<std::string, std::string> cases[] = {
            {"set 5 1\nnonsense 1", "line 2: unknown command 'nonsense'"},
            {"set", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 x", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 1 2147483648", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 1.5", "line 1: usage: set TYPE [VALUE...]"},
            {"get 5 0 1 2", "line 1: usage: get TYPE [FIRST [COUNT]]"},
            {"\n\nrefresh 1; power 1", "line 3: usage: power DISPLAY MODE"},
            {"refresh 9223372036854775808", "line 1: usage: refresh DISPLAY"},
            {"sample 1 2147483648 0", "line 1: usage: sample DISPLAY A B"},
            {"wait 1", "line 1: usage: wait"},
            {std::string("clear\0", 6), std::string("line 1: unknown command 'clear\0'", 32)},
    };
    for (const auto& [text, refusal] : cases)
        EXPECT_EQ(batch(text), "-22 " + refusal);
    EXPECT_THAT(get(5), ElementsAre(-ENOENT));
    EXPECT_THAT(dump(), HasSubstr("batches 0, events raised 0,"));
    EXPECT_THAT(dump(), HasSubstr("batch line 3: usage: power DISPLAY MODE  "));
}

TEST_F(BatchTest, SizeIsLimited) {
    EXPECT_EQ(batch(std::string(64 * 1024, ' ')), "");
    EXPECT_EQ(batch(std::string(64 * 1024 + 1, ' ')), "-7 ");
    std::string text;
    for (int i = 0; i < 1024; ++i)
        text += "osd 1 1;";
    EXPECT_THAT(batch(text), HasSubstr("osd 1: ok\n"));
    EXPECT_EQ(batch(text + "osd 2 2"), "-7 ");
    EXPECT_EQ(mService->GetOsdState(), 1);
}

}  // namespace
}  // namespace lmfg
