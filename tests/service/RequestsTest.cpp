#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/service/ServiceTest.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using vela::test::answering;
using vela::test::shown;
using Library = lmfg::VelaService;
using V = VelaDefault;

using RequestsTest = ServiceTest;

TEST_F(RequestsTest, SetAndBufferAreOkWhateverTheLibraryAnswers) {
    for (const int32_t result : {0, 7, -1, INT32_MIN}) {
        EXPECT_CALL(*mChip, velaConfigureSet(-3, Library::hidl_vec<int>({4, -5})))
                .WillOnce(Return(Library::Return<int32_t>(result)));
        EXPECT_EQ("ok " + std::to_string(result),
                  ask(*mService, &V::velaConfigureSet, -3, Values{4, -5}));

        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
        EXPECT_CALL(*mChip, velaConfigureBuffer(1, uint64_t{1} << 63, _, 0x80000000u))
                .WillOnce(Return(result));
        int32_t out = 99;
        EXPECT_EQ("ok", told(mService->velaConfigureBuffer(1, INT64_MIN, fd, INT32_MIN, &out)));
        EXPECT_EQ(out, result);
        EXPECT_EQ(fcntl(fd.get(), F_GETFD), -1);
        (void)fd.release();
    }
}

TEST_F(RequestsTest, AnswersReachTheCallerUnlessTheyAreRefusals) {
    const std::string request("a\0b", 3);
    const Library::hidl_string reply("\0c\0", 3);
    EXPECT_CALL(*mChip, velaConfigureGet(2, Library::hidl_vec<int>({1, 2, 3}), _))
            .WillOnce(answering(Library::hidl_vec<int>({8, 9}), 0))
            .WillOnce(answering(Library::hidl_vec<int>(), 9))
            .WillOnce(answering(Library::hidl_vec<int>({8, 9}), -22))
            .WillOnce(answering(0));
    EXPECT_CALL(*mChip, velaConfigureBatch(2, Library::hidl_string(request), _))
            .WillOnce(answering(reply, 0))
            .WillOnce(answering(Library::hidl_string(), 9))
            .WillOnce(answering(reply, -22))
            .WillOnce(answering(0));
    EXPECT_CALL(*mChip,
                panelReadWrite(true, 1, 2, false, Library::hidl_vec<uint8_t>({0, 255}), 3, _))
            .WillOnce(answering(Library::hidl_vec<uint8_t>({128}), 0))
            .WillOnce(answering(Library::hidl_vec<uint8_t>(), 9))
            .WillOnce(answering(Library::hidl_vec<uint8_t>({128}), -22))
            .WillOnce(answering(0));
    const auto expectAnswers = [&](const std::string& values, const std::string& text,
                                   const std::string& bytes) {
        EXPECT_EQ(values, ask(*mService, &V::velaConfigureGet, 2, Values{1, 2, 3}));
        EXPECT_EQ(text, ask(*mService, &V::velaConfigureBatch, 2, request));
        EXPECT_EQ(bytes, ask(*mService, &V::panelReadWrite, true, 1, 2, false,
                             std::vector<uint8_t>{0, 255}, 3));
    };
    expectAnswers("ok { 8, 9 }", "ok \"\\0c\\0\"", "ok { '\\x80' (128) }");
    expectAnswers("ok {}", "ok \"\"", "ok {}");
    expectAnswers("-22 { 77 }", "-22 \"M\"", "-22 { 'M' (77, 0x4D) }");
    expectAnswers("-1 { 77 }", "-1 \"M\"", "-1 { 'M' (77, 0x4D) }");
}

TEST_F(RequestsTest, PanelAccessTakesTheLowEightBits) {
    const std::pair<int32_t, uint8_t> kCases[] = {{255, 255}, {256, 0},       {300, 44},
                                                  {-1, 255},  {INT32_MIN, 0}, {INT32_MAX, 255}};
    for (const auto& [wide, narrow] : kCases) {
        EXPECT_CALL(*mChip, panelReadWrite(_, narrow, 1, _, _, 2, _));
        EXPECT_CALL(*mChip, panelReadWrite(_, 1, narrow, _, _, 2, _));
        EXPECT_CALL(*mChip, panelReadWrite(_, 1, 2, _, _, narrow, _));
        const std::vector<uint8_t> none;
        (void)ask(*mService, &V::panelReadWrite, false, wide, 1, false, none, 2);
        (void)ask(*mService, &V::panelReadWrite, false, 1, wide, false, none, 2);
        (void)ask(*mService, &V::panelReadWrite, false, 1, 2, false, none, wide);
        testing::Mock::VerifyAndClearExpectations(mChip.get());
    }
}

TEST_F(RequestsTest, FailWithoutTheLibraryAndLeaveTheOutParameterAlone) {
    EXPECT_EQ("-1 77", ask(*mDegraded, &V::velaConfigureSet));
    EXPECT_EQ("-1 { 77 }", ask(*mDegraded, &V::velaConfigureGet));
    EXPECT_EQ("-1 \"M\"", ask(*mDegraded, &V::velaConfigureBatch));
    EXPECT_EQ("-1 77", ask(*mDegraded, &V::velaConfigureBuffer));
    EXPECT_EQ("-1 { 'M' (77, 0x4D) }", ask(*mDegraded, &V::panelReadWrite));
}

/** What dump() writes, one element per write. */
std::vector<std::string> dumped(VelaDefault& service) {
    int sockets[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets), 0);
    const char* arguments[] = {"ignored"};
    EXPECT_EQ(service.dump(sockets[0], arguments, 1), STATUS_OK);
    std::vector<std::string> writes;
    char buffer[256];
    for (ssize_t size; (size = recv(sockets[1], buffer, sizeof buffer, MSG_DONTWAIT)) >= 0;)
        writes.emplace_back(buffer, static_cast<size_t>(size));
    close(sockets[0]);
    close(sockets[1]);
    return writes;
}

TEST_F(RequestsTest, DumpWritesTheLibrarysTextAtOnce) {
    const std::string text("line\nzero\0end", 13);
    EXPECT_CALL(*mChip, getDumpString(0, _))
            .WillOnce([&](uint64_t, const auto& result) {
                result("an earlier text");
                result(text);
            })
            .WillOnce([](uint64_t, const auto& result) { result(""); })
            .WillOnce([](uint64_t, const auto&) {})
            .WillOnce([](uint64_t, const auto& result) { result("text"); });
    EXPECT_THAT(dumped(*mService), ElementsAre(text));
    EXPECT_THAT(dumped(*mService), IsEmpty());
    EXPECT_THAT(dumped(*mService), IsEmpty());
    EXPECT_EQ(mService->dump(-1, nullptr, 0), STATUS_OK);
    EXPECT_THAT(dumped(*mDegraded), ElementsAre("Vela service library loaded failed"));
}

TEST_F(RequestsTest, ComposerClientsAreFreshAndBoundToTheLibrary) {
    std::shared_ptr<IVelaComposerClient> first;
    std::shared_ptr<IVelaComposerClient> second;
    EXPECT_EQ("ok", told(mService->createComposerClient(&first)));
    EXPECT_EQ("ok", told(mService->createComposerClient(&second)));
    EXPECT_NE(first, second);
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_CALL(*mChip, PresentDisplay).WillOnce(Return(12));
    EXPECT_EQ("ok 12", ask(*first, &IVelaComposerClient::presentDisplay));
    EXPECT_EQ("unknown", told(mDegraded->createComposerClient(&second)));
    EXPECT_EQ(second, nullptr);
}

// The operations that only composer clients serve. The chip is strict: asking it anything fails the
// test.
TEST_F(RequestsTest, RefusalsFillTheOutParameterWithAndWithoutTheLibrary) {
    for (VelaDefault* const service : {mService.get(), mDegraded.get()}) {
        const std::pair<std::string, std::string> kAnswers[] = {
                {"-2 0", ask(*service, &V::commitLayerStack)},
                {"-2 0", ask(*service, &V::configureVelaMaxcll)},
                {"-2 " + shown(VelaFixedConfig()), ask(*service, &V::getCurrentConfig)},
                {"-2 \"\"", ask(*service, &V::getDumpString)},
                {"-2 " + shown(LutData()), ask(*service, &V::getLayerToneMappingLut)},
                {"-2 0", ask(*service, &V::getOsdStatus)},
                {"-2 0", ask(*service, &V::handleDisplayEvent)},
                {"-2 1", ask(*service, &V::present)},
                {"-2 0", ask(*service, &V::presentDisplay)},
                {"-2 0", ask(*service, &V::setColorModeWithRenderIntent)},
                {"-2 0", ask(*service, &V::setOsdAutoRefresh)},
                {"-2 0", ask(*service, &V::setPowerMode)},
                {"-2 { -1 }", ask(*service, &V::updateDisplayBrightness)},
                {"-2 0", ask(*service, &V::setColorTransform)},
        };
        for (const auto& it : kAnswers)
            EXPECT_EQ(it.first, it.second) << "number " << &it - kAnswers;
        const std::string kStatuses[] = {ask(*service, &V::buildLayerStack),
                                         ask(*service, &V::changeLayerType),
                                         ask(*service, &V::createLayer),
                                         ask(*service, &V::destroyLayer),
                                         ask(*service, &V::enableSecondaryDisplay),
                                         ask(*service, &V::reportDualChannelStatus),
                                         ask(*service, &V::setActiveConfig),
                                         ask(*service, &V::setClientTarget),
                                         ask(*service, &V::setDisplayConnected),
                                         ask(*service, &V::setLayerBuffer),
                                         ask(*service, &V::setLayerCompositionType),
                                         ask(*service, &V::setLayerDisplayFrame),
                                         ask(*service, &V::setLayerProperty),
                                         ask(*service, &V::setLayerSetEmpty),
                                         ask(*service, &V::setLayerSourceCrop),
                                         ask(*service, &V::setLayerTransform),
                                         ask(*service, &V::setLayerZOrder),
                                         ask(*service, &V::configureVelaHdrMode)};
        EXPECT_THAT(kStatuses, testing::Each("-2"));
    }
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
