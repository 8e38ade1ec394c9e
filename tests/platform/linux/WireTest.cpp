#include <string>

#include <gtest/gtest.h>

#include "tests/platform/linux/RawProcess.h"

namespace platformtest {
namespace {

TEST(WireTest, EndpointNamesAreNoPaths) {
    EXPECT_TRUE(binder::isEndpointName("1.0123456789abcdef"));
    EXPECT_EQ(binder::pidOfEndpoint("417.0123456789abcdef"), 417);
    for (const char* name :
         {"", ".", "1", "1.", "1.0123456789abcde", "1.0123456789abcdef0", "0.0123456789abcdef",
          "-1.0123456789abcdef", "1.0123456789ABCDEF", "../0123456789abcdef", "1.01234567/9abcdef",
          "99999999999.0123456789abcdef", "9999999999.0123456789abcdef"}) {
        EXPECT_FALSE(binder::isEndpointName(name)) << name;
    }
}

TEST(WireTest, OnlyWholeMessagesParse) {
    const Bytes message = messageOf(headerOf(MessageKind::kCall), Bytes(16),
                                    {binderAt(8, ownName(), 7), descriptorAt(9)});
    const auto parsed = binder::parseMessage(message, ConnectionKind::kCall);
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->table.objects.size(), 2U);
    EXPECT_EQ(binder::endpointOf(parsed->table.objects[0]), ownName());
    EXPECT_EQ(parsed->table.objects[0].id, 7U);
    EXPECT_FALSE(binder::parseMessage(message, ConnectionKind::kOneway).has_value());
    for (size_t size = 0; size < message.size(); ++size) {
        EXPECT_FALSE(binder::parseMessage({message.data(), size}, ConnectionKind::kCall));
    }
    Bytes longer = message;
    longer.push_back(0);
    EXPECT_FALSE(binder::parseMessage(longer, ConnectionKind::kCall).has_value());
}

}  // namespace
}  // namespace platformtest
