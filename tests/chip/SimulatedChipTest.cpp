#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Handle = VelaService::hidl_handle;

VelaService::LayerStack stackOf(size_t layers) {
    VelaService::LayerStack stack;
    stack.layers.resize(layers);
    return stack;
}

/** The names of the requests that were made. */
class NamingObserver : public ChipObserver {
  public:
    void began(const ChipCall& call) override { mNames.insert(call.operation); }

    std::set<std::string> mNames;
};

TEST_F(SimulatedChipTest, EveryRequestShowsInTheDumpOrAnswers) {
    const auto observer = std::make_shared<NamingObserver>();
    installChip(std::make_shared<SimulatedChip>(), {observer});
    mService = VelaService::init();
    mService->enableSecondaryDisplay(true);
    EXPECT_FALSE(mService->Present2nd());
    mService->SetVirtualDisplayConnected(true);
    EXPECT_EQ(mService->handleDisplayEvent(2, 0, 0), 0);
    EXPECT_EQ(mService->velaConfigureBuffer(0, 0, nullptr, 1), -EBADF);
    const auto ignore = [](int32_t, const auto&) {};
    mService->getLayerToneMappingLut(1, 2, ignore);
    std::vector<int> panel;
    mService->panelReadWrite(true, 3, 4, false, {5}, 0, into(panel));
    EXPECT_THAT(panel, ElementsAre(0));
    mService->updateDisplayBrightness(3, 77, {}, ignore);
    mService->setActiveConfig({.value1 = 5, .value2 = 6, .real1 = 90, .value4 = 7});
    mService->initialize(3, 720, 1600);
    mService->initSoftVela();
    mService->SetPowerMode(0x102);
    expectEach({{mService->SetColorModeWithRenderIntent(7, 1), 0},
                {mService->SetColorTransform(std::vector<float>(16, 0.5f)), 0},
                {mService->configureVelaMaxcll(1000), 0},
                {mService->setOsdAutoRefresh(1), 0}});
    mService->SetClientTarget(4);
    mService->reportDualChannelStatus(2);
    mService->SetPluggableDisplayConnected(true);
    mService->setFrameBufferResolution(1, 1920, 1080);
    mService->setPanelName(1, "outdoor");
    mService->SetLayerSetEmpty(2, true);
    mService->setLayerProperty(9, 10);
    mService->CreateLayer(42, 1);
    mService->ChangeLayerType(42, 2);
    mService->SetLayerCompositionType(42, 3);
    mService->SetLayerTransform(42, 4);
    mService->SetLayerZOrder(42, 5);
    mService->SetLayerDisplayFrame(42, {0, 1, 2, 3});
    mService->SetLayerSourceCrop(42, {-4, -3, -2, -1});
    mService->setLayerBuffer(1, 42, {.value1 = 77});
    mService->buildLayerStack(0, stackOf(2));
    EXPECT_EQ(mService->CommitLayerStack(0, true), 0);
    EXPECT_TRUE(mService->Present());
    EXPECT_EQ(mService->PresentDisplay(), 0);
    batch("osd 5 6; set 20 1 2");
    mService->DestroyLayer(43);

    EXPECT_EQ(mService->GetOsdState(), 5);
    EXPECT_EQ(mService->GetOsdOverFlow(), 6);
    EXPECT_THAT(get(20), ElementsAre(0, 1, 2));
    EXPECT_EQ(set(21, {}), 0);

    std::ifstream file(DUMP_FILE);
    EXPECT_EQ(dump(), std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_THAT(dump(1), HasSubstr("42  5     2"));
    EXPECT_THAT(dump(1), Not(HasSubstr("primary")));
    EXPECT_EQ(dump(4), "unknown display 4\n");
    EXPECT_EQ(dump(~0ull), "unknown display 18446744073709551615\n");

    mService->getCurrentConfig([](int32_t status, const auto& config) {
        expectEach({{status, 0},
                    {config.value1, 3},
                    {config.value2, 720},
                    {config.value3, 1600},
                    {config.value4, 90},
                    {config.value5, 0x102},
                    {config.value6, 7}});
        EXPECT_THAT(config.list1, ElementsAre(0, 1, 3));
        EXPECT_THAT(config.list2, ElementsAre(20));
    });

    std::set<std::string> all;
    for (const ChipOperation& operation : chipOperations())
        all.insert(operation.name);
    EXPECT_EQ(observer->mNames, all);
}

TEST_F(SimulatedChipTest, NonsenseChangesNothingButTheDump) {
    VelaService& chip = *mService;
    chip.CreateLayer(1, 0);
    for (uint32_t i = 0; i < 1024; ++i)
        chip.setLayerProperty(i, i);
    chip.setActiveConfig({.value1 = 16384, .value2 = 16384});
    const std::string before = dump();
    EXPECT_THAT(before, HasSubstr("16384x16384"));
    EXPECT_THAT(before, Not(HasSubstr("flagged")));
    chip.setLayerProperty(1023, 1023);
    chip.setLayerProperty(1024, 0);
    chip.initialize(1, 0, 1);
    chip.initialize(1, 1, 16385);
    chip.CreateLayer(1, 1);
    chip.CreateLayer(2, 4);
    chip.CreateLayer(2, -1);
    chip.SetLayerZOrder(2, 1);
    chip.SetLayerTransform(1, 8);
    chip.SetLayerTransform(1, -1);
    chip.SetLayerDisplayFrame(1, {2, 0, 1, 0});
    chip.SetLayerSourceCrop(1, {0, 1, 0, 0});
    chip.setLayerBuffer(1, 1, {});
    chip.SetLayerSetEmpty(-1, true);
    chip.buildLayerStack(4, stackOf(1));
    chip.buildLayerStack(0, stackOf(1025));
    chip.setActiveConfig({.value1 = -1, .value2 = 5});
    chip.setActiveConfig({.value1 = 5, .value2 = 16385});
    chip.SetPowerMode(6);
    chip.SetPowerMode(-1);
    chip.setFrameBufferResolution(0, 0, 5);
    chip.setFrameBufferResolution(4, 5, 5);
    chip.setPanelName(0, std::string(256, 'n'));
    chip.setPanelName(9, "n");
    const std::string after = dump();
    EXPECT_THAT(after, HasSubstr("refusals 23\n"));
    // Everything but the counters and the refusals.
    const auto state = [](const std::string& text) {
        const size_t counted = text.find("  counted");
        const size_t displays = text.find("Displays");
        return text.substr(0, counted) + text.substr(displays, text.find("\nRecent") - displays);
    };
    EXPECT_EQ(state(after), state(before));
}

TEST_F(SimulatedChipTest, MalformedBatchChangesNothing) {
    const std::pair<std::string, std::string> cases[] = {
            {"set 5 1\nnonsense 1", "line 2: unknown command 'nonsense'"},
            {"set", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 x", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 1 2147483648", "line 1: usage: set TYPE [VALUE...]"},
            {"set 5 1.5", "line 1: usage: set TYPE [VALUE...]"},
            {"get 5 0 1 2", "line 1: usage: get TYPE [FIRST [COUNT]]"},
            {"\n\nrefresh 1; power 1", "line 3: usage: power DISPLAY MODE"},
            {"refresh 9223372036854775808", "line 1: usage: refresh DISPLAY"},
            {"sample 1 2147483648 0", "line 1: usage: sample DISPLAY A B"},
            {"wait 1", "line 1: usage: wait"},
            {std::string("clear\0", 6), std::string("line 1: unknown command 'clear\0'", 32)},
    };
    for (const auto& [text, refusal] : cases)
        EXPECT_EQ(batch(text), "-22 " + refusal);
    EXPECT_THAT(get(5), ElementsAre(-ENOENT));
    EXPECT_THAT(dump(), HasSubstr("batches 0, events raised 0,"));
    EXPECT_THAT(dump(), HasSubstr("batch line 3: usage: power DISPLAY MODE\n"));
}

TEST_F(SimulatedChipTest, BatchesAreLimited) {
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
