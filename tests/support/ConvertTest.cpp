#include "support/Convert.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace lmfg::support {
namespace {

using Values = std::vector<int32_t>;

TEST(ConvertTest, CopiesBothWaysAndGivesAnEmptyVectorNoBuffer) {
    Values out = {1};
    for (const Values& values : {Values{INT32_MIN, -1, 0, INT32_MAX}, Values()}) {
        EXPECT_EQ(toHidl(values).data() == nullptr, values.empty());
        copyOut(toHidl(values), &out);
        EXPECT_EQ(out, values);
    }
    std::string text = "before";
    for (const std::string& each : {std::string("a\0b\0", 4), std::string()}) {
        EXPECT_EQ(toHidl(each).size(), each.size());
        copyOut(toHidl(each), &text);
        EXPECT_EQ(text, each);
    }
}

}  // namespace
}  // namespace lmfg::support
