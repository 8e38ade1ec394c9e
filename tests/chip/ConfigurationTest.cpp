#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ConfigurationTest = SimulatedChipTest;

TEST_F(ConfigurationTest, RegistersKeepTheirValues) {
    EXPECT_EQ(set(5, {10, 20, 30}), 0);
    EXPECT_THAT(get(5).value, ElementsAre(10, 20, 30));
    EXPECT_THAT(get(5, {1}).value, ElementsAre(20, 30));
    EXPECT_THAT(get(5, {1, 1}).value, ElementsAre(20));
    EXPECT_THAT(get(5, {3}).value, IsEmpty());
    EXPECT_EQ(set(5, {}), 0);
    EXPECT_EQ(get(5).status, -ENOENT);
}

TEST_F(ConfigurationTest, RegistersRefuseNonsense) {
    ASSERT_EQ(set(1, {1, 2}), 0);
    struct {
        int status;
        int expected;
    } const cases[] = {
            {set(-1, {1}), -EINVAL},
            {set(1024, {1}), -EINVAL},
            {set(512, {1}), -EPERM},
            {set(1, std::vector<int>(65)), -E2BIG},
            {get(-1).status, -EINVAL},
            {get(1024).status, -EINVAL},
            {get(2).status, -ENOENT},
            {get(1, {-1}).status, -ERANGE},
            {get(1, {3}).status, -ERANGE},
            {get(1, {1, 2}).status, -ERANGE},
            {get(1, {1, -1}).status, -ERANGE},
            {get(1, {0, 1, 2}).status, -EINVAL},
            {get(512).status, 0},
            {set(1, std::vector<int>(64)), 0},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].status, cases[i].expected) << "case " << i;
    }
    EXPECT_THAT(dump(), HasSubstr("refusals 12\n"));
    EXPECT_THAT(dump(), HasSubstr("velaConfigureSet 512   EPERM "));
}

class BufferTest : public SimulatedChipTest {
  protected:
    BufferTest() : mHandle(native_handle_create(1, 0)) {
        mHandle->data[0] = memfd_create("buffer", MFD_CLOEXEC);
    }
    ~BufferTest() override {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }

    void fill(const std::string& content) {
        ASSERT_EQ(pwrite(mHandle->data[0], content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
    }

    VelaService::LutData lut(uint64_t layer) {
        VelaService::LutData result;
        mService->getLayerToneMappingLut(layer, 7, [&](int32_t status, const auto& lut) {
            EXPECT_EQ(status, 0);
            result = lut;
        });
        return result;
    }

    native_handle_t* mHandle;
};

TEST_F(BufferTest, ToneMappingTableReachesItsLayer) {
    mService->CreateLayer(9, 2);
    EXPECT_EQ(lut(9).list2[15], 0xffff);
    EXPECT_EQ(lut(9).flag1, 0);

    fill(std::string("\x01\x02\xff\x00", 4));
    EXPECT_EQ(mService->velaConfigureBuffer(1, 9, mHandle, 4), 0);
    const VelaService::LutData table = lut(9);
    EXPECT_THAT(table.list2, ElementsAre(0x201, 0xff));
    EXPECT_THAT(table.list1, ElementsAre(2));
    EXPECT_EQ(table.value1, 2);
    EXPECT_EQ(table.value2, 7);
    EXPECT_EQ(table.flag1, 1);

    int32_t status = 0;
    mService->getLayerToneMappingLut(10, 0, [&](int32_t it, const auto&) { status = it; });
    EXPECT_EQ(status, -EINVAL);
}

TEST_F(BufferTest, OtherBuffersLeaveTheirChecksum) {
    fill("hello");
    EXPECT_EQ(mService->velaConfigureBuffer(77, ~0ull, mHandle, 5), 0);
    EXPECT_THAT(dump(), HasSubstr("77  18446744073709551615      5  1335831723\n"));
}

TEST_F(BufferTest, RefusesWhatItCannotRead) {
    fill("abc");
    native_handle_t* const two = native_handle_create(2, 0);
    const auto request = [this](int type, const VelaService::hidl_handle& buffer, uint32_t size) {
        return mService->velaConfigureBuffer(type, 1, buffer, size);
    };
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    native_handle_t* const pipe = native_handle_create(1, 0);
    pipe->data[0] = ends[0];
    EXPECT_EQ(request(77, mHandle, 0), -EINVAL);
    EXPECT_EQ(request(77, mHandle, 4), -EIO);
    EXPECT_EQ(request(77, mHandle, (1 << 20) + 1), -E2BIG);
    EXPECT_EQ(request(77, nullptr, 1), -EBADF);
    EXPECT_EQ(request(77, two, 1), -EBADF);
    EXPECT_EQ(request(77, pipe, 1), -ESPIPE);
    EXPECT_EQ(request(-1, mHandle, 1), -EINVAL);
    EXPECT_EQ(request(1, mHandle, 3), -EINVAL) << "odd table";
    EXPECT_EQ(request(1, mHandle, 8194), -E2BIG);
    EXPECT_EQ(request(1, mHandle, 2), -EINVAL) << "no such layer";
    EXPECT_THAT(dump(), Not(HasSubstr("Buffers")));
    native_handle_close(pipe);
    close(ends[1]);
    native_handle_delete(pipe);
    native_handle_delete(two);
}

class PanelTest : public SimulatedChipTest {
  protected:
    Answer<std::vector<uint8_t>> access(bool write, uint8_t display, uint8_t address,
                                        const std::vector<uint8_t>& data, uint8_t count) {
        Answer<std::vector<uint8_t>> answer;
        mService->panelReadWrite(write, display, address, false, data, count,
                                 [&](int32_t status, const auto& bytes) {
                                     answer = {status, bytes};
                                 });
        return answer;
    }
};

TEST_F(PanelTest, ReadsWhatWasWrittenToTheSameDisplay) {
    EXPECT_EQ(access(true, 1, 250, {1, 2, 3, 4, 5, 6}, 0).status, 0);
    EXPECT_THAT(access(false, 1, 252, {}, 3).value, ElementsAre(3, 4, 5));
    EXPECT_THAT(access(false, 0, 252, {}, 3).value, ElementsAre(0, 0, 0));
}

TEST_F(PanelTest, RefusesWhatDoesNotFit) {
    EXPECT_EQ(access(true, 4, 0, {1}, 0).status, -EINVAL);
    EXPECT_EQ(access(true, 0, 0, {}, 9).status, -EINVAL);
    EXPECT_EQ(access(false, 0, 0, {1}, 0).status, -EINVAL);
    EXPECT_EQ(access(true, 0, 255, {1, 2}, 0).status, -ERANGE);
    EXPECT_EQ(access(false, 0, 2, {}, 255).status, -ERANGE);
    EXPECT_EQ(access(false, 0, 1, {}, 255).value.size(), 255u);
}

}  // namespace
}  // namespace lmfg
