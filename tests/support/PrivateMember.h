#pragma once

namespace vela::test {

/**
 * Opens a private member to a test: an explicit instantiation may name it. In this namespace:
 *
 *     struct LogMask {
 *         using Type = uint32_t VelaDefault::*;
 *         friend Type privateMember(LogMask);
 *     };
 *     template struct Open<LogMask, &VelaDefault::mLogMask>;
 *
 *     service.*privateMember(LogMask()) = 1;
 *
 * The tag is a name used once in the program.
 */
template <typename Tag, typename Tag::Type kMember>
struct Open {
    friend typename Tag::Type privateMember(Tag) { return kMember; }
};

}  // namespace vela::test
