#include "support/Answer.h"

#include <functional>

#include <gtest/gtest.h>

#include "vts/Ask.h"

namespace lmfg::support {
namespace {

using android::hardware::hidl_vec;
using Values = std::vector<int32_t>;

TEST(AnswerTest, KeepsTheValuesOfAStatusThatIsNotNegative) {
    const struct {
        std::vector<std::pair<int32_t, Values>> calls;
        std::string told;
        Values kept;
        Values out;  // {7} before
    } kCases[] = {
            {{}, "-1", {}, {7}},
            {{{0, {1, 2}}}, "ok", {1, 2}, {1, 2}},
            {{{0, {}}}, "ok", {}, {}},
            {{{5, {3}}}, "ok", {3}, {3}},
            {{{-22, {1, 2}}}, "-22", {}, {7}},
            {{{INT32_MIN, {1}}}, "-2147483648", {}, {7}},
            {{{0, {1, 2, 3}}, {1, {4}}}, "ok", {4}, {4}},
            {{{0, {1}}, {-5, {2}}}, "-5", {1}, {7}},
    };
    for (const auto& it : kCases) {
        Answer<Values> answer;
        const std::function<void(int32_t, const hidl_vec<int32_t>&)> receiver = answer.receiver();
        for (const auto& [status, values] : it.calls)
            receiver(status, toHidl(values));
        EXPECT_EQ(answer.value(), it.kept);
        Values out = {7};
        EXPECT_EQ(vela::test::told(answer.moveTo(&out)), it.told);
        EXPECT_EQ(out, it.out);
    }
}

}  // namespace
}  // namespace lmfg::support
