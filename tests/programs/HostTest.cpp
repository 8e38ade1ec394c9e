#include <algorithm>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class HostTest : public ProgramsTest {};

TEST_F(HostTest, SaysInOneLineWhatIsWrong) {
    struct Case {
        Arguments arguments;
        int code;
        std::string text;
    };
    const std::string symbolless = libraryFolder() + "/libvelaservice.so";
    const std::string refusing = libraryFolder() + "/refusing_entry.so";
    const std::string made = mFolder / "made";
    const Case cases[] = {
            {{"--library", "/nowhere/impl.so"}, 1, "/nowhere/impl.so"},
            {{"--library", symbolless}, 1, "has no entry AIDL_REGISTER_IVela"},
            {{"--library", refusing}, 1, "AIDL_REGISTER_IVela returned 1"},
            {{"--trace", "/nowhere/trace.json"}, 1, "/nowhere/trace.json"},
            {{"--record", "/dev/full"}, 1, "the record to /dev/full: No space left on device"},
            {{"--record", made, "--journal", "/nowhere/j"}, 1, "/nowhere/j: No such file"},
            {{"--record", made, "--trace", made},
             2,
             made + " cannot hold the record and the trace"},
            {{"--journal-times"}, 2, "--journal-times requires --journal"},
            {{"--frames", "/proc/frames"}, 1, "cannot make /proc/frames"},
            {{"--fault", "Prezent=-5"}, 2, "\n  Present: a status (-22 or EINVAL), delay:MS"},
            {{"--fault", "Present=silent"}, 2, "Present takes a status"},
            {{"--fault", "CreateLayer=silent"}, 2, "CreateLayer takes a status"},
            {{"--fault", "velaConfigureGet=EFOO"}, 2, "velaConfigureGet takes a status"},
            {{"--fault", "velaConfigureGet=twice@0"}, 2, "@EVERY is a number from 1"},
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
    EXPECT_FALSE(std::filesystem::exists(made)) << "left by a host that could not serve";
}

TEST_F(HostTest, ServesWithOneThread) {
    const auto host = startHost({"--threads", "0"});
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(answer({"composer", "getOsdStatus", "2"}), 0);
}

TEST_F(HostTest, ServesAloneAndEndsTheOneThatItReplaces) {
    const auto first = startHost();
    ASSERT_NE(first, nullptr);
    const auto second = startHost({"--replace", "--chip", "absent"});
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->wait(), 0) << first->errors();
    EXPECT_EQ(velactl({"dump"}).out, "Vela service library loaded failed");
    const Result third = runProgram("velahost", {});
    EXPECT_EQ(third.code, 1);
    EXPECT_THAT(third.errors, HasSubstr("velahost (" + std::to_string(second->pid()) +
                                        ") serves vendor.lumenforge.hardware.display.IVela"));
    const Result help = runProgram("velahost", {"--fault", "help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, HasSubstr("\n  Present: a status (-22 or EINVAL), delay:MS"));
}

}  // namespace
