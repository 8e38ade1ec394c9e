#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>

#include "tests/service/ServiceTest.h"
#include "tests/support/LogCapture.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::_;
using testing::Return;
using testing::WithParamInterface;
using Library = lmfg::VelaService;
using Values = std::vector<int32_t>;
using Bytes = std::vector<uint8_t>;

using RequestsTest = ServiceTest;

TEST_F(RequestsTest, SetIsOkWhateverTheLibraryAnswers) {
    for (const int32_t result : {0, 7, -1, INT32_MIN}) {
        EXPECT_CALL(*mChip, velaConfigureSet(-3, Library::hidl_vec<int>({4, -5})))
                .WillOnce(Return(Library::Return<int32_t>(result)));
        int32_t out = 99;
        EXPECT_TRUE(mService->velaConfigureSet(-3, {4, -5}, &out).isOk());
        EXPECT_EQ(out, result);
    }
}

TEST_F(RequestsTest, EmptyVectorsReachTheLibraryWithoutABuffer) {
    EXPECT_CALL(*mChip, velaConfigureSet).WillOnce([](int, const auto& values) {
        EXPECT_EQ(values.data(), nullptr);
        EXPECT_EQ(values.size(), 0u);
        return 0;
    });
    int32_t out = 0;
    EXPECT_TRUE(mService->velaConfigureSet(0, {}, &out).isOk());
}

TEST_F(RequestsTest, BufferIsOkWhateverTheLibraryAnswersAndClosesTheDescriptor) {
    for (const int32_t result : {0, 7, -22}) {
        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
        EXPECT_CALL(*mChip, velaConfigureBuffer(1, uint64_t{1} << 63, _, 0x80000000u))
                .WillOnce(Return(result));
        int32_t out = 99;
        EXPECT_TRUE(mService->velaConfigureBuffer(1, INT64_MIN, fd, INT32_MIN, &out).isOk());
        EXPECT_EQ(out, result);
        EXPECT_EQ(fcntl(fd.get(), F_GETFD), -1);
        (void)fd.release();
    }
}

/** How the library answers one of the requests that it answers by a closure. */
struct Answer {
    const char* name;
    std::vector<int32_t> statuses;  // of its calls of the closure
    int32_t error;                  // the service-specific error, or 0
};

class AnswerTest : public ServiceTest, public WithParamInterface<Answer> {
  protected:
    template <typename Receiver, typename Value>
    static Library::Return<void> answer(const Receiver& result, const Value& value) {
        for (const int32_t status : GetParam().statuses)
            result(status, value);
        return {};
    }
    static std::pair<int32_t, int32_t> expected() {
        return isOk() ? kOk : serviceSpecific(GetParam().error);
    }
    static bool isOk() { return GetParam().error == 0; }
};

TEST_P(AnswerTest, OfGet) {
    EXPECT_CALL(*mChip, velaConfigureGet(2, Library::hidl_vec<int>({1, 2, 3}), _))
            .WillOnce([](int, const auto&, const auto& result) {
                return answer(result, Library::hidl_vec<int>({8, 9}));
            });
    Values out = {1};
    EXPECT_EQ(codesOf(mService->velaConfigureGet(2, {1, 2, 3}, &out)), expected());
    EXPECT_EQ(out, isOk() ? Values({8, 9}) : Values({1}));
}

TEST_P(AnswerTest, OfBatch) {
    const std::string request("a\0b", 3);
    const std::string reply("\0c\0", 3);
    EXPECT_CALL(*mChip, velaConfigureBatch(2, Library::hidl_string(request), _))
            .WillOnce([&](int, const auto&, const auto& result) {
                return answer(result, Library::hidl_string(reply));
            });
    std::string out = "before";
    EXPECT_EQ(codesOf(mService->velaConfigureBatch(2, request, &out)), expected());
    EXPECT_EQ(out, isOk() ? reply : "before");
}

TEST_P(AnswerTest, OfPanelAccess) {
    EXPECT_CALL(*mChip,
                panelReadWrite(true, 1, 2, false, Library::hidl_vec<uint8_t>({0, 255}), 3, _))
            .WillOnce([](bool, uint8_t, uint8_t, bool, const auto&, uint8_t, const auto& result) {
                return answer(result, Library::hidl_vec<uint8_t>({128}));
            });
    Bytes out = {1};
    EXPECT_EQ(codesOf(mService->panelReadWrite(true, 1, 2, false, {0, 255}, 3, &out)), expected());
    EXPECT_EQ(out, isOk() ? Bytes({128}) : Bytes({1}));
}

INSTANTIATE_TEST_SUITE_P(All, AnswerTest,
                         testing::Values(Answer{"Ok", {0}, 0}, Answer{"Positive", {9}, 0},
                                         Answer{"Refused", {-22}, -22},
                                         Answer{"RefusedLowest", {INT32_MIN}, INT32_MIN},
                                         Answer{"NotAnswered", {}, -1},
                                         Answer{"AnsweredTwice", {-5, 0}, 0},
                                         Answer{"TakenBack", {0, -5}, -5}),
                         [](const auto& info) { return info.param.name; });

TEST_F(RequestsTest, AnswersWithoutValuesEmptyTheOutParameter) {
    EXPECT_CALL(*mChip, velaConfigureGet).WillOnce([](int, const auto&, const auto& result) {
        result(0, {});
        return Library::Return<void>();
    });
    Values values = {1, 2};
    EXPECT_TRUE(mService->velaConfigureGet(0, {}, &values).isOk());
    EXPECT_TRUE(values.empty());

    EXPECT_CALL(*mChip, panelReadWrite)
            .WillOnce([](bool, uint8_t, uint8_t, bool, const auto&, uint8_t, const auto& result) {
                result(0, {});
                return Library::Return<void>();
            });
    Bytes bytes = {1, 2};
    EXPECT_TRUE(mService->panelReadWrite(false, 0, 0, true, {}, 0, &bytes).isOk());
    EXPECT_TRUE(bytes.empty());
}

TEST_F(RequestsTest, PanelAccessTakesTheLowEightBits) {
    const std::pair<int32_t, uint8_t> cases[] = {
            {0, 0},    {255, 255}, {256, 0},       {300, 44},
            {-1, 255}, {-256, 0},  {INT32_MIN, 0}, {INT32_MAX, 255},
    };
    for (const auto& [wide, narrow] : cases) {
        EXPECT_CALL(*mChip, panelReadWrite(_, narrow, 1, _, _, 2, _));
        EXPECT_CALL(*mChip, panelReadWrite(_, 1, narrow, _, _, 2, _));
        EXPECT_CALL(*mChip, panelReadWrite(_, 1, 2, _, _, narrow, _));
        Bytes out;
        (void)mService->panelReadWrite(false, wide, 1, false, {}, 2, &out);
        (void)mService->panelReadWrite(false, 1, wide, false, {}, 2, &out);
        (void)mService->panelReadWrite(false, 1, 2, false, {}, wide, &out);
        testing::Mock::VerifyAndClearExpectations(mChip.get());
    }
}

TEST(DegradedRequestsTest, FailAndLeaveTheOutParameterAlone) {
    const auto service = makeDegraded();
    int32_t code = 99;
    Values values = {1};
    Bytes bytes = {1};
    std::string text = "before";
    const ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
    EXPECT_EQ(codesOf(service->velaConfigureSet(1, {1}, &code)), serviceSpecific(-1));
    EXPECT_EQ(codesOf(service->velaConfigureGet(1, {1}, &values)), serviceSpecific(-1));
    EXPECT_EQ(codesOf(service->velaConfigureBatch(1, "b", &text)), serviceSpecific(-1));
    EXPECT_EQ(codesOf(service->velaConfigureBuffer(1, 2, fd, 3, &code)), serviceSpecific(-1));
    EXPECT_EQ(codesOf(service->panelReadWrite(true, 1, 2, true, {1}, 3, &bytes)),
              serviceSpecific(-1));
    EXPECT_EQ(code, 99);
    EXPECT_EQ(values, Values({1}));
    EXPECT_EQ(bytes, Bytes({1}));
    EXPECT_EQ(text, "before");
    EXPECT_NE(fcntl(fd.get(), F_GETFD), -1);
}

TEST(DegradedRequestsTest, OnlyStartupBatchesArePending) {
    const auto service = makeDegraded();
    const auto& pending = VelaDefaultPeer::pendingBatches(*service);
    const std::string withZero("a\0b", 3);
    std::string out;
    for (const int32_t type : {0, 1023, 1025, -1024, INT32_MIN}) {
        EXPECT_EQ(codesOf(service->velaConfigureBatch(type, "no", &out)), serviceSpecific(-1));
    }
    EXPECT_TRUE(pending.empty());
    for (const std::string& text : {withZero, std::string(), withZero}) {
        EXPECT_EQ(codesOf(service->velaConfigureBatch(1024, text, &out)), serviceSpecific(-1));
    }
    EXPECT_THAT(pending, testing::ElementsAre(Library::hidl_string(withZero), "",
                                              Library::hidl_string(withZero)));
    // Without a library they stay.
    EXPECT_EQ(codesOf(service->initialize({})), kUnknownError);
    EXPECT_EQ(pending.size(), 3u);
}

/** What dump() writes, one element per write. */
std::vector<std::string> dumped(VelaDefault& service) {
    std::array<int, 2> sockets{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets.data()), 0);
    const char* arguments[] = {"ignored"};
    EXPECT_EQ(service.dump(sockets[0], arguments, 1), STATUS_OK);
    close(sockets[0]);
    std::vector<std::string> writes;
    std::array<char, 256> buffer{};
    for (ssize_t size;
         (size = recv(sockets[1], buffer.data(), buffer.size(), MSG_DONTWAIT)) >= 0;) {
        writes.emplace_back(buffer.data(), static_cast<size_t>(size));
    }
    close(sockets[1]);
    return writes;
}

TEST_F(RequestsTest, DumpWritesTheLibrarysTextAtOnce) {
    const std::string text("line\nzero\0end", 13);
    EXPECT_CALL(*mChip, getDumpString(0, _)).WillOnce([&](uint64_t, const auto& result) {
        result("an earlier text");
        result(text);
    });
    EXPECT_THAT(dumped(*mService), testing::ElementsAre(text));

    EXPECT_CALL(*mChip, getDumpString(0, _)).WillOnce([](uint64_t, const auto& result) {
        result("");
    });
    EXPECT_TRUE(dumped(*mService).empty());

    EXPECT_CALL(*mChip, getDumpString(0, _)).Times(2);
    EXPECT_TRUE(dumped(*mService).empty());
    EXPECT_EQ(mService->dump(-1, nullptr, 0), STATUS_OK);
}

TEST_F(RequestsTest, AFailedWriteOfTheDumpIsNoFailure) {
    EXPECT_CALL(*mChip, getDumpString).WillOnce([](uint64_t, const auto& result) {
        result("text");
    });
    EXPECT_EQ(mService->dump(-1, nullptr, 0), STATUS_OK);
}

TEST(DegradedRequestsTest, DumpTellsThatTheLibraryIsAbsent) {
    EXPECT_THAT(dumped(*makeDegraded()),
                testing::ElementsAre("Vela service library loaded failed"));
}

TEST_F(RequestsTest, ComposerClientsAreFreshAndBoundToTheLibrary) {
    std::shared_ptr<IVelaComposerClient> first;
    std::shared_ptr<IVelaComposerClient> second;
    ASSERT_TRUE(mService->createComposerClient(&first).isOk());
    ASSERT_TRUE(mService->createComposerClient(&second).isOk());
    EXPECT_NE(first, second);
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_CALL(*mChip, PresentDisplay).WillOnce(Return(12));
    int32_t out = 0;
    EXPECT_TRUE(first->presentDisplay(0, &out).isOk());
    EXPECT_EQ(out, 12);
}

TEST(DegradedRequestsTest, CreateComposerClientFailsAndEmptiesItsAnswer) {
    const auto chip = std::make_shared<testing::NiceMock<lmfg::MockChip>>();
    lmfg::installChip(chip);
    std::shared_ptr<IVelaComposerClient> out;
    ASSERT_TRUE(ndk::SharedRefBase::make<VelaDefault>()->createComposerClient(&out).isOk());
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(codesOf(makeDegraded()->createComposerClient(&out)), kUnknownError);
    EXPECT_EQ(out, nullptr);
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
