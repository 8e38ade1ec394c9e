#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Handle = VelaService::hidl_handle;
using ConfigurationTest = SimulatedChipTest;

TEST_F(ConfigurationTest, RegistersKeepTheirValuesAndRefuseNonsense) {
    ASSERT_EQ(set(1, {1, 2}), 0);
    EXPECT_THAT(get(1, {1}), ElementsAre(0, 2));
    EXPECT_THAT(get(1, {0, 1}), ElementsAre(0, 1));
    EXPECT_THAT(get(1, {2}), ElementsAre(0));
    expectEach({{set(-1, {1}), -EINVAL},
                {set(1024, {1}), -EINVAL},
                {set(512, {1}), -EPERM},
                {set(1, std::vector<int>(65)), -E2BIG},
                {get(-1)[0], -EINVAL},
                {get(1024)[0], -EINVAL},
                {get(2)[0], -ENOENT},
                {get(1, {-1})[0], -ERANGE},
                {get(1, {3})[0], -ERANGE},
                {get(1, {1, 2})[0], -ERANGE},
                {get(1, {1, -1})[0], -ERANGE},
                {get(1, {0, 1, 2})[0], -EINVAL},
                {set(1, std::vector<int>(64)), 0},
                {set(1, {}), 0},
                {get(1)[0], -ENOENT}});
    EXPECT_THAT(dump(), HasSubstr("refusals 13\n"));
    EXPECT_THAT(dump(), HasSubstr("velaConfigureSet 512   EPERM "));
}

/// A handle that owns the descriptors.
Handle handleOf(const std::vector<int>& fds) {
    native_handle_t* const native = native_handle_create(static_cast<int>(fds.size()), 0);
    std::copy(fds.begin(), fds.end(), native->data);
    Handle handle;
    handle.setTo(native, true);
    return handle;
}

TEST_F(ConfigurationTest, BuffersReachTheirLayerOrLeaveTheirChecksum) {
    const Handle buffer = handleOf({memfd_create("buffer", MFD_CLOEXEC)});
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Handle noFile = handleOf({ends[0]});
    const Handle two = handleOf({ends[1], -1});
    ASSERT_EQ(pwrite(buffer->data[0], "hello", 5, 0), 5);
    const auto request = [this](int type, uint64_t layer, const Handle& handle, uint32_t size) {
        return mService->velaConfigureBuffer(type, layer, handle, size);
    };
    const auto lut = [this](uint64_t layer) {
        VelaService::LutData result;
        mService->getLayerToneMappingLut(layer, 7, [&](int32_t status, const auto& table) {
            EXPECT_EQ(status, 0);
            result = table;
        });
        return result;
    };
    mService->CreateLayer(9, 2);
    expectEach({{request(77, 9, buffer, 0), -EINVAL},
                {request(77, 9, buffer, 6), -EIO},
                {request(77, 9, buffer, (1 << 20) + 1), -E2BIG},
                {request(77, 9, {}, 1), -EBADF},
                {request(77, 9, two, 1), -EBADF},
                {request(77, 9, noFile, 1), -ESPIPE},
                {request(-1, 9, buffer, 1), -EINVAL},
                {request(1, 9, buffer, 3), -EINVAL},
                {request(1, 9, buffer, 8194), -E2BIG},
                {request(1, 8, buffer, 2), -EINVAL}});
    EXPECT_THAT(dump(), Not(HasSubstr("Buffers")));
    EXPECT_EQ(lut(9).list2[15], 0xffff);
    EXPECT_EQ(lut(9).flag1, 0);

    EXPECT_EQ(request(77, ~0ull, buffer, 5), 0);
    EXPECT_THAT(dump(), HasSubstr("77  18446744073709551615      5  1335831723\n"));
    ASSERT_EQ(pwrite(buffer->data[0], "\x01\x02\xff\x00", 4, 0), 4);
    EXPECT_EQ(request(1, 9, buffer, 4), 0);
    const VelaService::LutData table = lut(9);
    EXPECT_THAT(table.list2, ElementsAre(0x201, 0xff));
    EXPECT_THAT(table.list1, ElementsAre(2));
    EXPECT_EQ(table.value1, 2);
    EXPECT_EQ(table.value2, 7);
    EXPECT_EQ(table.flag1, 1);
}

TEST_F(ConfigurationTest, PanelAndBrightnessRefuseWhatDoesNotFit) {
    std::vector<int> answer;
    const auto panel = [&](bool write, uint8_t display, uint8_t address, size_t size,
                           uint8_t count) {
        mService->panelReadWrite(write, display, address, false, std::vector<uint8_t>(size), count,
                                 into(answer));
        return answer[0];
    };
    const auto brightness = [&](int level, size_t count) {
        mService->updateDisplayBrightness(0, level, std::vector<int>(count), into(answer));
        return answer[0];
    };
    expectEach({{panel(true, 4, 0, 1, 0), -EINVAL},
                {panel(true, 0, 0, 0, 9), -EINVAL},
                {panel(false, 0, 0, 1, 0), -EINVAL},
                {panel(true, 0, 255, 2, 0), -ERANGE},
                {panel(true, 0, 255, 1, 0), 0},
                {panel(false, 0, 2, 0, 255), -ERANGE},
                {panel(false, 0, 1, 0, 255), 0}});
    EXPECT_EQ(answer.size(), 256u);
    expectEach(
            {{brightness(10, 64), 0}, {brightness(-1, 0), -ERANGE}, {brightness(1, 65), -E2BIG}});
    EXPECT_THAT(answer, ElementsAre(-E2BIG, 10));
}

}  // namespace
}  // namespace lmfg
