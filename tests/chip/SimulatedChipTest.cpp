#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

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

TEST_F(SimulatedChipTest, ABufferIsOneDescriptor) {
    for (const int count : {0, 2}) {
        VelaService::hidl_handle buffer;
        buffer.setTo(native_handle_create(count, 0), true);
        std::fill_n(const_cast<int*>(buffer->data), count, -1);
        EXPECT_EQ(mService->velaConfigureBuffer(0, 0, buffer, 1), -EBADF);
    }
    EXPECT_EQ(mService->velaConfigureBuffer(0, 0, nullptr, 1), -EBADF);
}

}  // namespace
}  // namespace lmfg
