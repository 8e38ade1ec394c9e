#include "tests/composer/ComposerTest.h"
#include "translate/HidlToAidl.h"

namespace {

class QueriesTest : public ComposerTest {
  protected:
    /** The query's record in place of what the caller's held, or a refusal, which leaves that. */
    template <typename Out, typename... Arguments>
    void expectRecord(const std::string& asks, const auto& delivered, auto operation,
                      const Arguments&... arguments) {
        Out out;
        (void)lmfg::h2a::translate(delivered, &out);
        const std::string before = shown(untouched<Out>());
        const std::pair<vela::test::ChipFault, std::string> kCases[] = {
                {{}, "ok " + shown(out)},
                {{.answers = 2}, "ok " + shown(out)},
                {{.status = 4}, "ok " + shown(Out())},
                {{.status = -3}, "-3 " + before},
                {{.answers = 0}, "-1 " + before},
        };
        for (const auto& [answer, result] : kCases) {
            answerWith(answer);
            EXPECT_EQ("-1 " + before + " / " + asks + ' ' + result, both(operation, arguments...));
        }
    }
};

TEST_F(QueriesTest, RecordsAreTranslatedIntoFreshOnes) {
    V1_1::VelaFixedConfig config;
    mChip->getCurrentConfig([&](int32_t, const auto& it) { config = it; });
    expectRecord<display::VelaFixedConfig>("getCurrentConfig[]", config, &C::getCurrentConfig, 1);
    V1_1::LutData lut;
    mChip->CreateLayer(kWide, 0);
    mChip->getLayerToneMappingLut(kWide, ~1u, [&](int32_t, const auto& it) { lut = it; });
    ASSERT_GT(lut.list2.size(), 0u);
    expectRecord<display::LutData>("getLayerToneMappingLut[4294967301,4294967294]", lut,
                                   &C::getLayerToneMappingLut, kWide, -2);
}

TEST_F(QueriesTest, DumpStringIsTheLastTextDelivered) {
    const std::string text = "getDumpString[4294967301] ok \"unknown display 4294967301\\n\"";
    EXPECT_EQ("-1 \"M\" / " + text, both(&C::getDumpString, kWide));
    answerWith({.answers = 2});
    EXPECT_EQ(text, through(*mClient, &C::getDumpString, kWide));
    answerWith({.answers = 0});
    EXPECT_EQ("getDumpString[4294967301] ok \"\"", through(*mClient, &C::getDumpString, kWide));
}

TEST_F(QueriesTest, OsdStatusKnowsTwoNumbers) {
    answerWith({.status = -5});
    EXPECT_EQ("-1 77 / GetOsdState[] ok -5", both(&C::getOsdStatus, 0));
    EXPECT_EQ("-1 77 / GetOsdOverFlow[] ok -5", both(&C::getOsdStatus, 1));
    EXPECT_EQ("-1 77 / ok 0", both(&C::getOsdStatus, 2));
    EXPECT_EQ("-1 77 / ok 0", both(&C::getOsdStatus, -1));
}

TEST_F(QueriesTest, BrightnessCarriesItsStatusInTheResult) {
    const std::string asks = "updateDisplayBrightness[3,40,[1,2]] ";
    const auto set = [&] { return both(&C::updateDisplayBrightness, 3, 40, Values{1, 2}); };
    EXPECT_EQ("ok { -1 } / " + asks + "ok { 0, 0 }", set());
    answerWith({.answers = 2});
    EXPECT_EQ("ok { -1 } / " + asks + "ok { 0, 40, 0, 40 }", set());
    answerWith({.status = -5, .answers = 0});
    EXPECT_EQ("ok { -1 } / " + asks + "ok {}", set());
    answerWith({});
    // Nor does a refusal keep the values back. The display is passed on whole.
    EXPECT_EQ("updateDisplayBrightness[3,-1,[]] ok { -34, 40 }",
              through(*mClient, &C::updateDisplayBrightness, 3, -1));
    EXPECT_EQ("updateDisplayBrightness[4294967301,0,[]] ok { -22 }",
              through(*mClient, &C::updateDisplayBrightness, kWide));
}

}  // namespace
