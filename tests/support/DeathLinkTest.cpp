#include "support/DeathLink.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace lmfg::support {
namespace {

struct Record {
    explicit Record(int recordValue) : value(recordValue), live(this) {}

    const int value;
    const LiveRecord live;
};

/** The record's value, or 0 if it is gone. */
int read(void* cookie) {
    int value = 0;
    LiveRecord::read<Record>(cookie, [&](const Record& record) { value = record.value; });
    return value;
}

TEST(DeathLinkTest, ARecordIsReadOnlyWhileItLives) {
    EXPECT_EQ(read(nullptr), 0);
    auto first = std::make_unique<Record>(1);
    auto second = std::make_unique<Record>(2);
    void* const cookie = first.get();
    EXPECT_EQ(read(cookie), 1);
    first.reset();
    EXPECT_EQ(read(cookie), 0);
    EXPECT_EQ(read(second.get()), 2);
}

// Meant for the sanitizers: a notification that runs while its record is destroyed.
TEST(DeathLinkTest, ReadsRunAgainstDestruction) {
    for (int round = 1; round <= 200; ++round) {
        auto record = std::make_unique<Record>(round);
        void* const cookie = record.get();
        std::atomic<bool> running = false;
        std::thread notification([&] {
            running = true;
            running.notify_one();
            const int value = read(cookie);
            EXPECT_TRUE(value == round || value == 0) << value;
        });
        running.wait(false);
        record.reset();
        notification.join();
    }
}

}  // namespace
}  // namespace lmfg::support
