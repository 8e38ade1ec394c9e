#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/composer/ComposerFixture.h"
#include "tests/translate/RecordFields.h"
#include "translate/HidlToAidl.h"

namespace {

using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Return;
using ::testing::SizeIs;

using Values = std::vector<int32_t>;
const auto kType = static_cast<display::VendorConfig>(-7);  // no enumerator: passed on unchanged

class RequestsTest : public ComposerTest {
  protected:
    // The chip's answer to a write, or the error that it becomes.
    std::string write(int32_t answer, Values* result) {
        EXPECT_CALL(*mChip, velaConfigureSet(-7, ElementsAre(1, 2)))
                .WillOnce(Return(lmfg::VelaService::Return<int32_t>(answer)));
        return told(mClient->configureValues(kType, {1, 2}, result));
    }
};

TEST_F(RequestsTest, valuesAreReadWhenNoneAreGiven) {
    EXPECT_CALL(*mChip, velaConfigureGet(-7, SizeIs(0), _)).WillOnce([](auto, auto&, auto result) {
        result(2, {4, 5});
        return ::android::hardware::Void();
    });
    Values result{9, 9, 9};
    EXPECT_EQ("ok", told(mClient->configureValues(kType, {}, &result)));
    EXPECT_THAT(result, ElementsAre(4, 5));

    EXPECT_CALL(*mChip, velaConfigureGet).WillOnce([](auto, auto&, auto answer) {
        answer(0, {});
        return ::android::hardware::Void();
    });
    EXPECT_EQ("ok", told(mClient->configureValues(kType, {}, &result)));
    EXPECT_THAT(result, IsEmpty());
}

TEST_F(RequestsTest, valuesAreWrittenWhenGiven) {
    Values result{9};
    EXPECT_EQ("ok", write(0, &result));
    EXPECT_THAT(result, ElementsAre(0));
    EXPECT_EQ("ok", write(5, &result));
    EXPECT_THAT(result, ElementsAre(5));
    EXPECT_EQ("-22", write(-22, &result));
    EXPECT_THAT(result, ElementsAre(5));
}

TEST_F(RequestsTest, refusedReadsLeaveTheResultAlone) {
    Values result{9};
    EXPECT_CALL(*mChip, velaConfigureGet).WillOnce([](auto, auto&, auto answer) {
        answer(-5, {4});
        return ::android::hardware::Void();
    });
    EXPECT_EQ("-5", told(mClient->configureValues(kType, {}, &result)));
    EXPECT_CALL(*mChip, velaConfigureGet);  // never answers
    EXPECT_EQ("-1", told(mClient->configureValues(kType, {}, &result)));
    EXPECT_EQ("-1", told(mAbsent->configureValues(kType, {}, &result)));
    EXPECT_EQ("-1", told(mAbsent->configureValues(kType, {1}, &result)));
    EXPECT_THAT(result, ElementsAre(9));
}

TEST_F(RequestsTest, batch) {
    const std::string text("in\0side", 7);
    std::string reply = "before";
    EXPECT_CALL(*mChip, velaConfigureBatch(-7, _, _))
            .WillOnce([&](auto, const hidl_string& request, auto answer) {
                EXPECT_EQ(text, std::string(request.c_str(), request.size()));
                answer(3, hidl_string("re\0ply", 6));
                return ::android::hardware::Void();
            })
            .WillOnce([](auto, auto&, auto answer) {
                answer(-4, hidl_string("lost"));
                return ::android::hardware::Void();
            })
            .WillOnce([](auto, auto&, auto) { return ::android::hardware::Void(); });
    EXPECT_EQ("ok", told(mClient->configureBatch(kType, text, &reply)));
    EXPECT_EQ(std::string("re\0ply", 6), reply);
    EXPECT_EQ("-4", told(mClient->configureBatch(kType, text, &reply)));
    EXPECT_EQ("-1", told(mClient->configureBatch(kType, text, &reply)));
    // Not kept for later either, whatever the type: the next client's start replays nothing.
    EXPECT_EQ("-1",
              told(mAbsent->configureBatch(display::VendorConfig::STARTUP_BATCH, text, &reply)));
    EXPECT_EQ(std::string("re\0ply", 6), reply);
}

TEST_F(RequestsTest, bufferIsClosedWhateverTheAnswer) {
    for (const int32_t answer : {0, 7, -22}) {
        SCOPED_TRACE(answer);
        ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const int number = fd.get();
        EXPECT_CALL(*mChip, velaConfigureBuffer(-7, ~uint64_t{0}, _, 0xFFFFFFFEu))
                .WillOnce([&](auto, auto, const hidl_handle& handle, auto) {
                    EXPECT_EQ(1, handle->numFds);
                    EXPECT_EQ(0, handle->numInts);
                    EXPECT_EQ(number, handle->data[0]);
                    EXPECT_NE(-1, fcntl(number, F_GETFD));
                    return answer;
                });
        EXPECT_EQ(answer < 0 ? "-22" : "ok", told(mClient->configureBuffer(kType, -1, fd, -2)));
        EXPECT_EQ(number, fd.get());
        EXPECT_EQ(-1, fcntl(number, F_GETFD));
        EXPECT_EQ(EBADF, errno);
        *fd.getR() = -1;
    }
    const ndk::ScopedFileDescriptor fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ("-1", told(mAbsent->configureBuffer(kType, 0, fd, 0)));
    EXPECT_NE(-1, fcntl(fd.get(), F_GETFD));
}

TEST_F(RequestsTest, currentConfig) {
    std::mt19937 generator(2);
    const auto record = fields::randomRecord<V1_1::VelaFixedConfig>(generator);
    display::VelaFixedConfig expected;
    lmfg::h2a::translate(record, &expected);
    const auto before = fields::randomRecord<display::VelaFixedConfig>(generator);

    EXPECT_CALL(*mChip, getCurrentConfig)
            .WillOnce([&](auto answer) { answer(0, record); })
            .WillOnce([](auto answer) { answer(0, {}); })
            .WillOnce([&](auto answer) { answer(-3, record); })
            .WillOnce([](auto) {})
            .WillOnce([&](auto answer) {
                answer(0, record);
                answer(-9, {});
            })
            .WillOnce([&](auto answer) {
                answer(0, record);
                answer(-9, {});
                answer(4, {});
            });
    auto config = before;
    EXPECT_EQ("ok", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ(expected, config);
    EXPECT_EQ("ok", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ(display::VelaFixedConfig(), config);
    config = before;
    EXPECT_EQ("-3", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ("-1", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ("-9", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ("-1", told(mAbsent->getCurrentConfig(1, &config)));
    EXPECT_EQ(before, config);
    EXPECT_EQ("ok", told(mClient->getCurrentConfig(1, &config)));
    EXPECT_EQ(display::VelaFixedConfig(), config);
}

TEST_F(RequestsTest, toneMappingLut) {
    std::mt19937 generator(3);
    const auto record = fields::randomRecord<V1_1::LutData>(generator);
    display::LutData expected;
    lmfg::h2a::translate(record, &expected);
    const auto before = fields::randomRecord<display::LutData>(generator);

    EXPECT_CALL(*mChip, getLayerToneMappingLut(~uint64_t{0}, 0xFFFFFFFEu, _))
            .WillOnce([&](auto, auto, auto answer) { answer(1, record); })
            .WillOnce([&](auto, auto, auto answer) { answer(-3, record); })
            .WillOnce([](auto, auto, auto) {});
    auto lut = before;
    EXPECT_EQ("ok", told(mClient->getLayerToneMappingLut(-1, -2, &lut)));
    EXPECT_EQ(expected, lut);
    lut = before;
    EXPECT_EQ("-3", told(mClient->getLayerToneMappingLut(-1, -2, &lut)));
    EXPECT_EQ("-1", told(mClient->getLayerToneMappingLut(-1, -2, &lut)));
    EXPECT_EQ("-1", told(mAbsent->getLayerToneMappingLut(-1, -2, &lut)));
    EXPECT_EQ(before, lut);
}

TEST_F(RequestsTest, dumpString) {
    EXPECT_CALL(*mChip, getDumpString(~uint64_t{0}, _))
            .WillOnce([](auto, auto answer) { answer(hidl_string("du\0mp", 5)); })
            .WillOnce([](auto, auto) {});
    std::string text = "before";
    EXPECT_EQ("-1", told(mAbsent->getDumpString(-1, &text)));
    EXPECT_EQ("before", text);
    EXPECT_EQ("ok", told(mClient->getDumpString(-1, &text)));
    EXPECT_EQ(std::string("du\0mp", 5), text);
    EXPECT_EQ("ok", told(mClient->getDumpString(-1, &text)));
    EXPECT_EQ("", text);
}

TEST_F(RequestsTest, osdStatus) {
    EXPECT_CALL(*mChip, GetOsdState).WillOnce(Return(-5));
    EXPECT_CALL(*mChip, GetOsdOverFlow).WillOnce(Return(6));
    int32_t result = 77;
    EXPECT_EQ("-1", told(mAbsent->getOsdStatus(0, &result)));
    EXPECT_EQ(77, result);
    for (const auto& [which, expected] : {std::pair{0, -5}, {1, 6}, {2, 0}, {-1, 0}}) {
        EXPECT_EQ("ok", told(mClient->getOsdStatus(which, &result)));
        EXPECT_EQ(expected, result) << which;
    }
}

TEST_F(RequestsTest, brightnessCarriesItsStatusInTheResult) {
    EXPECT_CALL(*mChip, updateDisplayBrightness(~uint64_t{0}, 40, ElementsAre(1, 2), _))
            .WillOnce([](auto, auto, auto&, auto answer) {
                answer(-5, {7, 8});
            })
            .WillOnce([](auto, auto, auto&, auto answer) {
                answer(0, {});
                answer(1, {2});
            })
            .WillOnce([](auto, auto, auto&, auto) {});
    Values result{9};
    const auto update = [&](display::VelaComposerClient& client) {
        return told(client.updateDisplayBrightness(-1, 40, {1, 2}, &result));
    };
    EXPECT_EQ("ok", update(*mClient));
    EXPECT_THAT(result, ElementsAre(-5, 7, 8));
    EXPECT_EQ("ok", update(*mClient));
    EXPECT_THAT(result, ElementsAre(0, 1, 2));
    EXPECT_EQ("ok", update(*mClient));
    EXPECT_THAT(result, IsEmpty());
    EXPECT_EQ("ok", update(*mAbsent));
    EXPECT_THAT(result, ElementsAre(-1));
}

}  // namespace
