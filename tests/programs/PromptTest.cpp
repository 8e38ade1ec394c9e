#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

using testing::HasSubstr;

class PromptTest : public ProgramsTest {
  protected:
    void SetUp() override {
        ProgramsTest::SetUp();
        setenv("XDG_STATE_HOME", mFolder.c_str(), 1);
        setenv("TERM", "dumb", 1);
        setenv("NO_COLOR", "1", 1);
    }

    void TearDown() override {
        close(mTerminal);
        ProgramsTest::TearDown();
    }

    /** Not where the machine has no terminals to give: /dev/pts may be missing in a container. */
    void start(const char* session = nullptr) {
        mPid = forkpty(&mTerminal, nullptr, nullptr, nullptr);
        if (mPid != 0) return;
        const std::string program = programFolder() + "/velactl";
        execl(program.c_str(), program.c_str(), "session", session, nullptr);
        _exit(127);
    }

    /** Waits until the terminal shows the text; what it showed until then. */
    std::string await(const std::string& text) {
        constexpr int kPatienceMs = 30'000;
        while (mShown.find(text) == std::string::npos) {
            pollfd readable{.fd = mTerminal, .events = POLLIN, .revents = 0};
            std::array<char, 1024> chunk{};
            const ssize_t count = poll(&readable, 1, kPatienceMs) > 0
                                          ? read(mTerminal, chunk.data(), chunk.size())
                                          : 0;
            if (count <= 0) {
                ADD_FAILURE() << "no '" << text << "' in " << mShown;
                return {};
            }
            mShown.append(chunk.data(), static_cast<size_t>(count));
        }
        const size_t end = mShown.find(text) + text.size();
        const std::string shown = mShown.substr(0, end);
        mShown.erase(0, end);
        return shown;
    }

    void type(const std::string& text) const {
        ASSERT_EQ(write(mTerminal, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    pid_t mPid = -1;
    int mTerminal = -1;
    std::string mShown;
};

TEST_F(PromptTest, TellsAtOnceAndSurvivesCtrlC) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    start();
    if (mPid < 0) GTEST_SKIP() << "no terminal: " << strerror(errno);
    const struct {
        const char* typed;
        const char* shown;
        const char* prompt;
    } steps[] = {
            {"", "help tells of them", "vela> "},
            {"vela present 0\n", "error -2 (only a composer client", "vela> "},
            {"expect ok\n", "expected ok, came service-specific error -2", "vela> "},
            {"composer createLayer 9 1\n", "composer events go to this client", "null"},
            {"", "refused: EINVAL: display 9 is not there", "vela> "},
            {"repeat 2\n", "repeat ", "vela> "},
            {"vela nonsense\x03", "", "repeat vela> "},
            {"vela velaConfigureGet 512 []\n", "", "repeat vela> "},
            {"end\n", "[4,1024,64]\r\n[4,1024,64]", "vela> "},
            {"help expect\n", "refusals N", "vela> "},
            {"help setPowerMode\n", "3 doze-suspend", "vela> "},
            {"exit\n", "", "exit"},
    };
    for (const auto& it : steps) {
        type(it.typed);
        await(it.shown);
        await(it.prompt);
    }
    int status = 0;
    ASSERT_EQ(waitpid(mPid, &status, 0), mPid);
    EXPECT_TRUE(WIFEXITED(status));
    std::ifstream history(mFolder / "vela" / "history");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(history), {}), HasSubstr("exit"));
}

TEST_F(PromptTest, WhatIsDoneAtOnceShowsNoProgress) {
    const auto host = startHost();
    ASSERT_NE(host, nullptr);
    const std::string session = mFolder / "quick";
    std::ofstream(session) << "vela velaConfigureGet 512 []\nvela velaConfigureSet 1 [5]\n";
    start(session.c_str());
    if (mPid < 0) GTEST_SKIP() << "no terminal: " << strerror(errno);
    EXPECT_EQ(await("0\r\n"), "[4,1024,64]\r\n0\r\n");
}

}  // namespace
