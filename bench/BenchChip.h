#pragma once

#include <cstdint>

#include "host/chip/SimulatedChip.h"

namespace bench {

/** A chip that takes no time: what is measured does nothing, the rest is the simulated chip's. */
class BenchChip final : public lmfg::SimulatedChip {
  public:
    void CreateLayer(uint64_t /*layer*/, int /*display*/) override {}
    void buildLayerStack(int /*display*/, const LayerStack& /*stack*/) override {}
    /** Answers with the parameters. */
    Return<void> velaConfigureGet(int /*type*/, const hidl_vec<int>& params,
                                  ValuesResult result) override {
        result(0, params);
        return Return<void>();
    }
};

}  // namespace bench
