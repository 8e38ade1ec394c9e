#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "servicelib/VelaService.h"

namespace lmfg {

/// A service object with a simulated chip behind it, driven as the product does.
class SimulatedChipTest : public ::testing::Test {
  protected:
    SimulatedChipTest() {
        installChip(std::make_shared<SimulatedChip>());
        mService = VelaService::init();
    }
    ~SimulatedChipTest() override { installChip(nullptr); }

    template <typename T>
    struct Answer {
        int32_t status = 12345;
        T value{};
    };

    Answer<std::vector<int>> get(int type, const std::vector<int>& params = {}) {
        Answer<std::vector<int>> answer;
        mService->velaConfigureGet(type, params, [&](int32_t status, const auto& values) {
            answer = {status, values};
        });
        return answer;
    }

    int32_t set(int type, const std::vector<int>& values) {
        return mService->velaConfigureSet(type, values);
    }

    Answer<std::string> batch(const std::string& text) {
        Answer<std::string> answer;
        mService->velaConfigureBatch(1024, text, [&](int32_t status, const auto& reply) {
            answer = {status, reply};
        });
        return answer;
    }

    /// The reply of a batch that has to be accepted.
    std::string reply(const std::string& text) {
        const auto answer = batch(text);
        EXPECT_EQ(answer.status, 0) << text;
        return answer.value;
    }

    std::string dump(uint64_t display = 0) {
        std::string result;
        mService->getDumpString(display, [&](const auto& text) { result = text; });
        return result;
    }

    VelaService* mService = nullptr;
};

}  // namespace lmfg
