#pragma once

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace fuzz {

/** How many of the first descriptors are open. More are not in use here, and it is one call. */
inline std::ptrdiff_t openDescriptors() {
    std::array<pollfd, 64> all{};
    for (size_t i = 0; i < all.size(); ++i)
        all[i].fd = static_cast<int>(i);
    (void)poll(all.data(), all.size(), 0);
    return std::count_if(all.begin(), all.end(),
                         [](const pollfd& it) { return (it.revents & POLLNVAL) == 0; });
}

}  // namespace fuzz
