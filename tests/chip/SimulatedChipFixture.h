#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "servicelib/VelaService.h"

namespace lmfg {

/** A service object with a simulated chip behind it, driven as the product does. */
class SimulatedChipTest : public ::testing::Test {
  protected:
    SimulatedChipTest() {
        installChip(std::make_shared<SimulatedChip>());
        mService = VelaService::init();
    }
    ~SimulatedChipTest() override { installChip(nullptr); }

    /** The status of reading a register. */
    int32_t get(int type) {
        int32_t answer = 0;
        mService->velaConfigureGet(type, {}, [&](int32_t status, const auto&) { answer = status; });
        return answer;
    }

    int32_t set(int type, const std::vector<int>& values) {
        return mService->velaConfigureSet(type, values);
    }

    /** The reply, after the status of a batch that is refused. */
    std::string batch(const std::string& text) {
        std::string answer = "none";
        mService->velaConfigureBatch(1024, text, [&](int32_t status, const auto& reply) {
            answer = (status == 0 ? "" : std::to_string(status) + " ") + std::string(reply);
        });
        return answer;
    }

    std::string dump() {
        std::string result;
        mService->getDumpString(0, [&](const auto& text) { result = text; });
        return result;
    }

    VelaService* mService = nullptr;
};

}  // namespace lmfg
