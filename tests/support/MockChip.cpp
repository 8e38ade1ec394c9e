#include "tests/support/MockChip.h"

namespace lmfg {

MockChip::MockChip() {
    ON_CALL(*this, velaConfigureSet).WillByDefault([](int, const hidl_vec<int>&) {
        return Return<int32_t>(0);
    });
}

MockChip::~MockChip() = default;

}  // namespace lmfg
