#include "support/Answer.h"

#include <functional>

#include <gtest/gtest.h>

namespace lmfg::support {
namespace {

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using Values = std::vector<int32_t>;
using Receiver = std::function<void(int32_t, const hidl_vec<int32_t>&)>;

struct Call {
    int32_t status;
    Values values;
};

struct Case {
    const char* name;
    std::vector<Call> calls;
    int32_t status;
    Values kept;
};

class AnswerTest : public testing::TestWithParam<Case> {};

TEST_P(AnswerTest, KeepsTheValuesOfAStatusThatIsNotNegative) {
    Answer<Values> answer;
    const Receiver receiver = answer.receiver();
    for (const Call& call : GetParam().calls) {
        receiver(call.status, toHidl(call.values));
    }
    EXPECT_EQ(answer.status(), GetParam().status);
    EXPECT_EQ(answer.value(), GetParam().kept);

    const bool isOk = GetParam().status >= 0;
    Values out = {7, 8};
    const ndk::ScopedAStatus status = answer.moveTo(&out);
    EXPECT_EQ(status.isOk(), isOk);
    EXPECT_EQ(status.getServiceSpecificError(), isOk ? 0 : GetParam().status);
    EXPECT_EQ(out, isOk ? GetParam().kept : Values({7, 8}));
}

INSTANTIATE_TEST_SUITE_P(
        All, AnswerTest,
        testing::Values(Case{"NeverCalled", {}, -1, {}}, Case{"Zero", {{0, {1, 2}}}, 0, {1, 2}},
                        Case{"ZeroWithoutValues", {{0, {}}}, 0, {}},
                        Case{"Positive", {{5, {3}}}, 5, {3}},
                        Case{"Negative", {{-22, {1, 2}}}, -22, {}},
                        Case{"Lowest", {{INT32_MIN, {1}}}, INT32_MIN, {}},
                        Case{"LastCallWins", {{0, {1, 2, 3}}, {1, {4}}}, 1, {4}},
                        Case{"LastStatusAndLastKept", {{0, {1}}, {-5, {2}}}, -5, {1}}),
        [](const auto& info) { return info.param.name; });

TEST(ConvertTest, AnEmptyVectorGetsNoBuffer) {
    EXPECT_EQ(toHidl(Values()).data(), nullptr);
    EXPECT_EQ(toHidl(std::vector<uint8_t>()).size(), 0u);
}

TEST(ConvertTest, CopiesBothWays) {
    const Values values = {INT32_MIN, -1, 0, INT32_MAX};
    Values out = {1};
    copyOut(toHidl(values), &out);
    EXPECT_EQ(out, values);
    copyOut(hidl_vec<int32_t>(), &out);
    EXPECT_TRUE(out.empty());
}

TEST(ConvertTest, StringsKeepEmbeddedZeroBytes) {
    const std::string text("a\0b\0", 4);
    EXPECT_EQ(toHidl(text).size(), 4u);
    std::string out = "before";
    copyOut(toHidl(text), &out);
    EXPECT_EQ(out, text);
    copyOut(hidl_string(), &out);
    EXPECT_EQ(out, "");
}

}  // namespace
}  // namespace lmfg::support
