#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <hidl/HidlSupport.h>

namespace {

using ::android::hardware::hidl_vec;
using ::testing::Each;
using ::testing::ElementsAre;

/** Tells how many objects live, and whether an element was copied or moved to where it is. */
struct Tracked {
    Tracked() { ++live; }
    Tracked(const Tracked&) = delete;
    ~Tracked() { --live; }
    Tracked& operator=(const Tracked& other) {
        value = other.value;
        copied = true;
        return *this;
    }
    Tracked& operator=(Tracked&& other) noexcept {
        value = std::exchange(other.value, 0);
        return *this;
    }

    static inline int live = 0;
    int value = 0;
    bool copied = false;
};

class TrackedVecTest : public ::testing::Test {
  protected:
    ~TrackedVecTest() override { EXPECT_EQ(Tracked::live, 0) << "elements leaked or freed twice"; }

    static hidl_vec<Tracked> make(int count) {
        hidl_vec<Tracked> vec(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i)
            vec[static_cast<size_t>(i)].value = i + 1;
        return vec;
    }
};

TEST(HidlVecTest, ConvertsComparesAndHasNoBufferForNothing) {
    const std::vector<int> source = {1, 2, 3};
    EXPECT_THAT(hidl_vec<int>(source), ElementsAre(1, 2, 3));
    EXPECT_THAT(hidl_vec<int>(source.begin() + 1, source.end()), ElementsAre(2, 3));
    EXPECT_EQ(std::vector<int>(hidl_vec<int>(source)), source);
    EXPECT_NE(hidl_vec<int>(source), (hidl_vec<int>{1, 2, 4}));
    EXPECT_NE(hidl_vec<int>(source), (hidl_vec<int>{1, 2}));

    EXPECT_EQ(hidl_vec<int>(std::vector<int>()).data(), nullptr);
    hidl_vec<int> target = source;
    target = hidl_vec<int>();
    EXPECT_EQ(target.data(), nullptr);
    EXPECT_EQ(target.size(), 0u);
    EXPECT_NE(hidl_vec<int>(0).data(), nullptr) << "only resize allocates for nothing";
    target.resize(1000);
    EXPECT_THAT(target, Each(0));
}

TEST_F(TrackedVecTest, CopiesDeeplyButNotOntoItself) {
    const hidl_vec<Tracked> source = make(3);
    hidl_vec<Tracked> target = make(5);
    target = source;
    EXPECT_EQ(Tracked::live, 6);
    ASSERT_EQ(target.size(), 3u);
    EXPECT_EQ(target[2].value, 3);
    EXPECT_TRUE(target[2].copied);

    const Tracked* before = target.data();
    target[0].copied = false;
    hidl_vec<Tracked>& same = target;
    target = same;
    target = std::move(same);
    EXPECT_EQ(target.data(), before);
    EXPECT_FALSE(target[0].copied);
}

TEST_F(TrackedVecTest, MovedFromKeepsPointerAndSizeButNotOwnership) {
    hidl_vec<Tracked> source = make(2);
    hidl_vec<Tracked> target = make(4);
    const Tracked* buffer = source.data();
    target = std::move(source);
    EXPECT_EQ(Tracked::live, 2);
    EXPECT_EQ(target.data(), buffer);
    EXPECT_EQ(source.data(), buffer);
    EXPECT_EQ(source.size(), 2u);
}

TEST_F(TrackedVecTest, ResizeMovesWhatItKeeps) {
    for (const size_t size : {0u, 1u, 3u, 5u}) {
        hidl_vec<Tracked> vec = make(3);
        vec.resize(size);
        ASSERT_EQ(vec.size(), size);
        EXPECT_EQ(Tracked::live, static_cast<int>(size));
        for (size_t i = 0; i < size; ++i) {
            EXPECT_EQ(vec[i].value, i < 3 ? static_cast<int>(i) + 1 : 0);
            EXPECT_FALSE(vec[i].copied);
        }
    }
}

TEST_F(TrackedVecTest, BorrowsAndHandsOwnershipInAndOut) {
    Tracked external[3];
    hidl_vec<Tracked> vec = make(2);
    vec.setToExternal(external, 3);
    EXPECT_EQ(vec.data(), external);
    EXPECT_EQ(Tracked::live, 3);
    vec.setToExternal(new Tracked[2], 2, true);
    Tracked* released = vec.releaseData();
    vec = hidl_vec<Tracked>();
    EXPECT_EQ(Tracked::live, 5);
    vec.setToExternal(released, 2, true);
    vec = hidl_vec<Tracked>();
    EXPECT_EQ(Tracked::live, 3);
}

TEST(HidlVecDeathTest, MoreElementsThanFitAbort) {
    const size_t tooMany = size_t{std::numeric_limits<uint32_t>::max()} + 1;
    hidl_vec<uint8_t> vec;
    EXPECT_DEATH(vec.resize(tooMany), "hidl_vec can't hold more than 2\\^32 elements\\.");
    EXPECT_DEATH(vec.setToExternal(nullptr, tooMany), "hidl_vec can't hold more than");
}

}  // namespace
