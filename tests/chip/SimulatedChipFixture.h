#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "servicelib/VelaService.h"

namespace lmfg {

/** A service object with a simulated chip behind it, driven as the product does. */
class SimulatedChipTest : public ::testing::Test {
  protected:
    explicit SimulatedChipTest(const ChipObservers& observers = {}) {
        installChip(std::make_shared<SimulatedChip>(), observers);
        mService = VelaService::init();
    }
    ~SimulatedChipTest() override { installChip(nullptr); }

    /** Makes the result function of a request that keeps the status, then the values. */
    static auto into(std::vector<int>& answer) {
        return [&answer](int32_t status, const auto& values) {
            answer = {status};
            answer.insert(answer.end(), values.begin(), values.end());
        };
    }

    std::vector<int> get(int type, const std::vector<int>& params = {}) {
        std::vector<int> answer;
        mService->velaConfigureGet(type, params, into(answer));
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

    std::string dump(uint64_t display = 0) {
        std::string result;
        mService->getDumpString(display, [&](const auto& text) { result = text; });
        return result;
    }

    /** Results, each with what it should be. */
    static void expectEach(std::initializer_list<std::pair<int, int>> results) {
        for (const auto& it : results) {
            EXPECT_EQ(it.first, it.second) << "number " << &it - results.begin();
        }
    }

    VelaService* mService = nullptr;
};

}  // namespace lmfg
