#include <fcntl.h>

#include "tests/service/ServiceTest.h"
#include "tests/support/SystemSpy.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;
using V = VelaDefault;

using RequestsTest = ServiceTest;

TEST_F(RequestsTest, SetAndBufferAreOkWhateverTheLibraryAnswers) {
    for (const int32_t result : {0, 7, -1, INT32_MIN}) {
        answerWith({.status = result});
        EXPECT_EQ("velaConfigureSet[-3,[4,-5]] ok " + std::to_string(result),
                  through(*mService, &V::velaConfigureSet, -3, Values{4, -5}));
        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY));
        int32_t out = 99;
        EXPECT_EQ("-1", told(mDegraded->velaConfigureBuffer(1, 2, fd, 3, &out)));
        EXPECT_NE(fcntl(fd.get(), F_GETFD), -1);
        EXPECT_EQ("ok", told(mService->velaConfigureBuffer(1, INT64_MIN, fd, INT32_MIN, &out)));
        EXPECT_EQ(asked(),
                  "velaConfigureBuffer[1,9223372036854775808,"
                  "[{\"kind\":\"device\",\"size\":0}],2147483648] ");
        EXPECT_EQ(out, result);
        EXPECT_EQ(fcntl(fd.get(), F_GETFD), -1);
        (void)fd.release();
    }
}

TEST_F(RequestsTest, AnswersReachTheCallerUnlessTheyAreRefusals) {
    const std::string text("osd 1 1\0", 8);
    const auto expectAnswers = [&](const std::string& values, const std::string& reply,
                                   const std::string& bytes) {
        EXPECT_EQ("velaConfigureGet[2,[1,1]] " + values,
                  through(*mService, &V::velaConfigureGet, 2, Values{1, 1}));
        EXPECT_EQ("velaConfigureBatch[3,\"osd 1 1\\u0000\"] " + reply,
                  through(*mService, &V::velaConfigureBatch, 3, text));
        EXPECT_EQ("panelReadWrite[false,0,254,true,[],2] " + bytes,
                  through(*mService, &V::panelReadWrite, false, 256, -2, true, Bytes(), 258));
    };
    (void)through(*mService, &V::velaConfigureSet, 2, Values{7, 8, 9});
    EXPECT_EQ("panelReadWrite[true,0,255,false,[128],44] ok {}",
              through(*mService, &V::panelReadWrite, true, INT32_MIN, INT32_MAX, false, Bytes{128},
                      300));
    expectAnswers("ok { 8 }", "-22 \"M\"", "ok { '\\0', '\\x80' (128) }");
    answerWith({.status = 9});
    expectAnswers("ok {}", "ok \"\"", "ok {}");
    answerWith({.status = -22});
    expectAnswers("-22 { 77 }", "-22 \"M\"", "-22 { 'M' (77, 0x4D) }");
    answerWith({.answers = 0});
    expectAnswers("-1 { 77 }", "-1 \"M\"", "-1 { 'M' (77, 0x4D) }");
    answerWith({});
    EXPECT_EQ("velaConfigureBatch[0,\"osd 1 1\"] ok \"osd 1: ok\\n\"",
              through(*mService, &V::velaConfigureBatch, 0, "osd 1 1"));
}

TEST_F(RequestsTest, FailWithoutTheLibraryAndLeaveTheOutParameterAlone) {
    EXPECT_EQ("-1 77", ask(*mDegraded, &V::velaConfigureSet));
    EXPECT_EQ("-1 { 77 }", ask(*mDegraded, &V::velaConfigureGet));
    EXPECT_EQ("-1 \"M\"", ask(*mDegraded, &V::velaConfigureBatch));
    EXPECT_EQ("-1 77", ask(*mDegraded, &V::velaConfigureBuffer));
    EXPECT_EQ("-1 { 'M' (77, 0x4D) }", ask(*mDegraded, &V::panelReadWrite));
}

TEST_F(RequestsTest, DumpMakesOneAttemptToWriteTheLibrarysText) {
    vela::test::SystemSpy spy;
    const auto dumped = [&spy](VelaDefault& service) {
        const char* arguments[] = {"ignored"};
        EXPECT_EQ(service.dump(spy.kFile, arguments, 1), STATUS_OK);
        return spy.takeWrites();
    };
    std::string text;
    mChip->getDumpString(0, [&](const auto& delivered) { text = delivered; });
    for (const int deliveries : {1, 2}) {
        answerWith({.answers = deliveries});
        EXPECT_THAT(dumped(*mService), ElementsAre(text));
        EXPECT_EQ(asked(), "getDumpString[0] ");
    }
    answerWith({.answers = 0});
    EXPECT_THAT(dumped(*mService), IsEmpty());
    EXPECT_THAT(dumped(*mDegraded), ElementsAre("Vela service library loaded failed"));
    EXPECT_EQ(mDegraded->dump(-1, nullptr, 0), STATUS_OK);
    asked();
}

TEST_F(RequestsTest, ComposerClientsAreFreshAndBoundToTheLibrary) {
    std::shared_ptr<IVelaComposerClient> first;
    std::shared_ptr<IVelaComposerClient> second;
    EXPECT_EQ("ok", told(mService->createComposerClient(&first)));
    EXPECT_EQ("ok", told(mService->createComposerClient(&second)));
    EXPECT_NE(first, second);
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_EQ("PresentDisplay[] ok -61", through(*first, &IVelaComposerClient::presentDisplay));
    EXPECT_EQ("unknown", told(mDegraded->createComposerClient(&second)));
    EXPECT_EQ(second, nullptr);
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
