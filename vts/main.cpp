#include <cstdio>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "vts/Clients.h"

namespace {

/** Counts the tests, operations in a condition, that this service shows; says why not more. */
class Summary : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& test) override {
        if (!test.result()->Skipped()) return;
        const std::string reason = test.result()->GetTestPartResult(0).message();
        testing::Test::RecordProperty("skipped_because", reason);
        mSkipped[reason] += std::string("\n    ") + test.name();
    }

    void OnEnvironmentsTearDownStart(const testing::UnitTest& unit) override {
        const int total = unit.test_to_run_count();
        const int shown = total - unit.skipped_test_count();
        testing::Test::RecordProperty("conformance_shown", shown);
        testing::Test::RecordProperty("conformance_total", total);
        std::printf("Shown %d of %d (operation x condition)\n", shown, total);
        for (const auto& [reason, tests] : mSkipped)
            std::printf("  not shown, since %s:%s\n", reason.c_str(), tests.c_str());
    }

    std::map<std::string, std::string> mSkipped;
};

}  // namespace

int main(int argc, char** argv) {
    vts::ClientProcess::playIfAsked(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new Summary);
    return RUN_ALL_TESTS();
}
