#include <fcntl.h>

#include "tests/composer/ComposerTest.h"

namespace {

using display::VendorConfig;

using ConfigurationTest = ComposerTest;

TEST_F(ConfigurationTest, ValuesAreReadWhenNoneAreGivenAndElseWritten) {
    constexpr auto kType = static_cast<VendorConfig>(-7);  // no enumerator: passed on unchanged
    const std::pair<vela::test::ChipFault, std::pair<std::string, std::string>> kCases[] = {
            {{.status = 0}, {"ok {}", "ok { 0 }"}},
            {{.status = 5}, {"ok {}", "ok { 5 }"}},
            {{.status = -22}, {"-22 { 77 }", "-22 { 77 }"}},
            {{.status = 0, .answers = 0}, {"-1 { 77 }", "ok { 0 }"}},
    };
    for (const auto& [answer, results] : kCases) {
        answerWith(answer);
        EXPECT_EQ("-1 { 77 } / velaConfigureGet[-7,[]] " + results.first,
                  both(&C::configureValues, kType));
        EXPECT_EQ("-1 { 77 } / velaConfigureSet[-7,[1,2]] " + results.second,
                  both(&C::configureValues, kType, Values{1, 2}));
    }
    answerWith({});
    constexpr auto kRegister = static_cast<VendorConfig>(7);
    (void)both(&C::configureValues, kRegister, Values{4, 5});
    EXPECT_EQ("velaConfigureGet[7,[]] ok { 4, 5 }",
              through(*mClient, &C::configureValues, kRegister));
}

TEST_F(ConfigurationTest, BatchesAreAnsweredAndNeverKept) {
    const auto expectAnswer = [&](const std::string& answer) {
        EXPECT_EQ("-1 \"M\" / velaConfigureBatch[1024,\"osd 1 1\"] " + answer,
                  both(&C::configureBatch, VendorConfig::STARTUP_BATCH, "osd 1 1"));
    };
    expectAnswer("ok \"osd 1: ok\\n\"");
    answerWith({.status = -4});
    expectAnswer("-4 \"M\"");
    answerWith({.answers = 0});
    expectAnswer("-1 \"M\"");
}

TEST_F(ConfigurationTest, BufferCodesAreErrorsIfNegative) {
    const std::pair<int, const char*> kCases[] = {{0, "ok"}, {7, "ok"}, {-22, "-22"}};
    for (const auto& [code, status] : kCases) {
        answerWith({.status = code});
        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ("-1", told(mAbsent->configureBuffer(VendorConfig(-7), -1, fd, -2)));
        EXPECT_NE(-1, fcntl(fd.get(), F_GETFD));
        EXPECT_EQ(status, told(mClient->configureBuffer(VendorConfig(-7), kWide, fd, -2)));
        EXPECT_EQ(asked(),
                  "velaConfigureBuffer[-7,4294967301,"
                  "[{\"kind\":\"device\",\"size\":0}],4294967294] ");
        EXPECT_EQ(-1, fcntl(fd.get(), F_GETFD));
        (void)fd.release();
    }
}

}  // namespace
