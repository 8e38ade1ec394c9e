#include <fcntl.h>

#include <random>

#include "tests/composer/ComposerTest.h"
#include "tests/translate/RecordFields.h"
#include "translate/HidlToAidl.h"

namespace {

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using testing::_;
using testing::ElementsAre;
using testing::Return;
using testing::SizeIs;
using vela::test::answering;
using vela::test::shown;
using vela::test::untouched;
using C = VelaComposerClient;
using display::VendorConfig;

constexpr auto kType = static_cast<VendorConfig>(-7);  // no enumerator: passed on unchanged

using RequestsTest = ComposerTest;

TEST_F(RequestsTest, ValuesAreReadWhenNoneAreGiven) {
    EXPECT_CALL(*mChip, velaConfigureGet(-7, SizeIs(0), _))
            .WillOnce(answering(hidl_vec<int>({4, 5}), 2))
            .WillOnce(answering(hidl_vec<int>(), 0))
            .WillOnce(answering(hidl_vec<int>({4}), -5))
            .WillOnce(answering(0));
    EXPECT_EQ("-1 { 77 } / ok { 4, 5 }", askBoth(&C::configureValues, kType));
    EXPECT_EQ("ok {}", ask(*mClient, &C::configureValues, kType));
    EXPECT_EQ("-5 { 77 }", ask(*mClient, &C::configureValues, kType));
    EXPECT_EQ("-1 { 77 }", ask(*mClient, &C::configureValues, kType));
}

TEST_F(RequestsTest, ValuesAreWrittenWhenGiven) {
    const std::pair<int32_t, const char*> kCases[] = {
            {0, "ok { 0 }"}, {5, "ok { 5 }"}, {-22, "-22 { 77 }"}};
    for (const auto& [code, answer] : kCases) {
        EXPECT_CALL(*mChip, velaConfigureSet(-7, ElementsAre(1, 2)))
                .WillOnce(Return(lmfg::VelaService::Return<int32_t>(code)));
        EXPECT_EQ(std::string("-1 { 77 } / ") + answer,
                  askBoth(&C::configureValues, kType, Values{1, 2}));
    }
}

TEST_F(RequestsTest, BatchesAreAnsweredAndNeverKept) {
    const hidl_string text("in\0side", 7);
    EXPECT_CALL(*mChip, velaConfigureBatch(1024, text, _))
            .WillOnce(answering(hidl_string("re\0ply", 6), 3))
            .WillOnce(answering(hidl_string("lost"), -4))
            .WillOnce(answering(0));
    for (const char* answer : {"ok \"re\\0ply\"", "-4 \"M\"", "-1 \"M\""}) {
        EXPECT_EQ(std::string("-1 \"M\" / ") + answer,
                  askBoth(&C::configureBatch, VendorConfig::STARTUP_BATCH, std::string(text)));
    }
}

TEST_F(RequestsTest, BufferCodesAreErrorsIfNegative) {
    const std::pair<int, const char*> kCases[] = {{0, "ok"}, {7, "ok"}, {-22, "-22"}};
    for (const auto& [code, answer] : kCases) {
        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ("-1", told(mAbsent->configureBuffer(kType, -1, fd, -2)));
        EXPECT_NE(-1, fcntl(fd.get(), F_GETFD));
        EXPECT_CALL(*mChip, velaConfigureBuffer(-7, ~uint64_t{0}, _, 0xFFFFFFFEu))
                .WillOnce(Return(code));
        EXPECT_EQ(answer, told(mClient->configureBuffer(kType, -1, fd, -2)));
        EXPECT_EQ(-1, fcntl(fd.get(), F_GETFD));
        (void)fd.release();
    }
}

template <typename Record>
std::string translated(const auto& record) {
    Record out;
    (void)lmfg::h2a::translate(record, &out);
    return shown(out);
}

TEST_F(RequestsTest, CurrentConfigIsTranslatedIntoAFreshRecord) {
    using Config = display::VelaFixedConfig;
    std::mt19937 generator(2);
    const auto record = fields::randomRecord<V1_1::VelaFixedConfig>(generator);
    const auto thenRefused = [&](auto... others) {
        return [=](const auto& answer) {
            answer(0, record);
            answer(-9, {});
            (answer(others, {}), ...);
        };
    };
    EXPECT_CALL(*mChip, getCurrentConfig)
            .WillOnce(answering(record, 0))
            .WillOnce(answering(V1_1::VelaFixedConfig(), 0))
            .WillOnce(answering(record, -3))
            .WillOnce(answering(record))
            .WillOnce(thenRefused())
            .WillOnce(thenRefused(4));
    const std::string before = shown(untouched<Config>());
    for (const std::string& answer :
         {"ok " + translated<Config>(record), "ok " + shown(Config()), "-3 " + before,
          "-1 " + before, "-9 " + before, "ok " + shown(Config())}) {
        EXPECT_EQ("-1 " + before + " / " + answer, askBoth(&C::getCurrentConfig, 1));
    }
}

TEST_F(RequestsTest, ToneMappingLutIsTranslatedIntoAFreshRecord) {
    using Lut = display::LutData;
    std::mt19937 generator(3);
    const auto record = fields::randomRecord<V1_1::LutData>(generator);
    EXPECT_CALL(*mChip, getLayerToneMappingLut(~uint64_t{0}, 0xFFFFFFFEu, _))
            .WillOnce(answering(record, 1))
            .WillOnce(answering(record, -3));
    const std::string before = shown(untouched<Lut>());
    for (const std::string& answer : {"ok " + translated<Lut>(record), "-3 " + before}) {
        EXPECT_EQ("-1 " + before + " / " + answer, askBoth(&C::getLayerToneMappingLut, -1, -2));
    }
}

TEST_F(RequestsTest, DumpStringIsTheLastTextDelivered) {
    EXPECT_CALL(*mChip, getDumpString(~uint64_t{0}, _))
            .WillOnce([](uint64_t, const auto& result) { result(hidl_string("du\0mp", 5)); })
            .WillOnce([](uint64_t, const auto&) {});
    EXPECT_EQ("-1 \"M\" / ok \"du\\0mp\"", askBoth(&C::getDumpString, -1));
    EXPECT_EQ("-1 \"M\" / ok \"\"", askBoth(&C::getDumpString, -1));
}

TEST_F(RequestsTest, OsdStatusKnowsTwoNumbers) {
    EXPECT_CALL(*mChip, GetOsdState).WillOnce(Return(-5));
    EXPECT_CALL(*mChip, GetOsdOverFlow).WillOnce(Return(6));
    EXPECT_EQ("-1 77 / ok -5", askBoth(&C::getOsdStatus, 0));
    EXPECT_EQ("-1 77 / ok 6", askBoth(&C::getOsdStatus, 1));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::getOsdStatus, 2));
    EXPECT_EQ("-1 77 / ok 0", askBoth(&C::getOsdStatus, -1));
}

TEST_F(RequestsTest, BrightnessCarriesItsStatusInTheResult) {
    EXPECT_CALL(*mChip, updateDisplayBrightness(~uint64_t{0}, 40, ElementsAre(1, 2), _))
            .WillOnce(answering(hidl_vec<int>({7, 8}), -5))
            .WillOnce(answering(hidl_vec<int>({2}), 0, 1))
            .WillOnce(answering(0));
    for (const char* answer : {"ok { -5, 7, 8 }", "ok { 0, 2, 1, 2 }", "ok {}"}) {
        EXPECT_EQ(std::string("ok { -1 } / ") + answer,
                  askBoth(&C::updateDisplayBrightness, -1, 40, Values{1, 2}));
    }
}

}  // namespace
