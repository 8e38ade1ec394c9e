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

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Handle = VelaService::hidl_handle;

TEST_F(SimulatedChipTest, PropertiesLayersAndBatchesAreLimited) {
    for (uint32_t i = 0; i < 1024; ++i)
        mService->setLayerProperty(i, i);
    mService->setLayerProperty(1023, 1023);
    VelaService::LayerStack stack;
    stack.layers.resize(1024);
    mService->buildLayerStack(0, stack);
    EXPECT_THAT(dump(), HasSubstr("refusals 0\n"));
    mService->setLayerProperty(1024, 0);
    stack.layers.resize(1025);
    mService->buildLayerStack(0, stack);
    EXPECT_THAT(dump(), AllOf(HasSubstr("refusals 2\n"), HasSubstr("built 1,")));

    EXPECT_EQ(batch(std::string(64 * 1024, ' ')), "");
    EXPECT_EQ(batch(std::string(64 * 1024 + 1, ' ')), "-7 ");
    std::string text;
    for (int i = 0; i < 1024; ++i)
        text += "osd 1 1;";
    EXPECT_THAT(batch(text), HasSubstr("osd 1: ok\n"));
    EXPECT_EQ(batch(text + "osd 2 2"), "-7 ");
    EXPECT_EQ(mService->GetOsdState(), 1);
}

/** A handle that owns the descriptors. */
Handle handleOf(const std::vector<int>& fds) {
    native_handle_t* const native = native_handle_create(static_cast<int>(fds.size()), 0);
    std::copy(fds.begin(), fds.end(), native->data);
    Handle handle;
    handle.setTo(native, true);
    return handle;
}

TEST_F(SimulatedChipTest, BuffersReachTheirLayerOrLeaveTheirChecksum) {
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

}  // namespace
}  // namespace lmfg
