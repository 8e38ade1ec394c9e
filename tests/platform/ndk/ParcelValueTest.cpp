#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

namespace {

using ndk::ScopedAParcel;
using testing::ElementsAreArray;

enum class Small : int8_t { kMinus = -1, kOne = 1 };
enum class Wide : int64_t { kHuge = INT64_MIN };

template <typename T>
concept Optional = requires(const T& value) {
    value.has_value();
};
template <typename T>
binder_status_t write(AParcel* parcel, const T& value) {
    return ndk::AParcel_writeData(parcel, value);
}
template <Optional T>
binder_status_t write(AParcel* parcel, const T& value) {
    return ndk::AParcel_writeNullableData(parcel, value);
}
template <typename T>
binder_status_t read(const AParcel* parcel, T* value) {
    return ndk::AParcel_readData(parcel, value);
}
template <Optional T>
binder_status_t read(const AParcel* parcel, T* value) {
    return ndk::AParcel_readNullableData(parcel, value);
}

/** What is written is read back to its last byte, and any word cut off it is missed. */
template <typename T>
void checkRoundTrip(const T& value) {
    SCOPED_TRACE(testing::PrintToString(value));
    const ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(write(parcel.get(), value), STATUS_OK);
    const int32_t size = AParcel_getDataSize(parcel.get());
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), size);
    EXPECT_EQ(size % 4, 0);

    AParcel_setDataPosition(parcel.get(), 0);
    T result{};
    EXPECT_EQ(read(parcel.get(), &result), STATUS_OK);
    EXPECT_EQ(result, value);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), size);

    const std::vector<uint8_t> bytes = bytesOf(parcel.get());
    for (size_t kept = 0; kept < bytes.size(); kept += 4) {
        T rest{};
        const binder_status_t status = read(parcelOf(bytes, kept).get(), &rest);
        // A string that is not whole may be absent instead.
        EXPECT_FALSE(status == STATUS_OK && rest == value)
                << "with " << kept << " of " << bytes.size() << " bytes";
    }
}

template <typename T>
void checkLists(std::vector<T> values) {
    checkRoundTrip(std::vector<T>{});
    checkRoundTrip(values);
    checkRoundTrip(std::optional<std::vector<T>>{});
    checkRoundTrip(std::optional{values});
    const std::array<T, 2> fixed{values.front(), values.back()};
    checkRoundTrip(fixed);
    checkRoundTrip(std::optional{fixed});
}

template <typename T>
void checkAll(const std::vector<T>& values) {
    for (const T value : values)
        checkRoundTrip(value);
    checkLists(values);
}

template <typename T>
std::vector<T> extremes() {
    using Limits = std::numeric_limits<T>;
    return {Limits::lowest(), T{0}, T{1}, Limits::max()};
}

TEST(ParcelValue, ScalarsAndTheirListsSurvive) {
    checkAll<bool>({true, false, true});
    checkAll(extremes<char16_t>());
    checkAll(extremes<int32_t>());
    checkAll(extremes<int64_t>());
    checkAll(extremes<float>());
    checkAll(extremes<double>());
    checkAll<float>({-0.0f, INFINITY, std::numeric_limits<float>::denorm_min()});
    checkAll<Small>({Small::kMinus, Small::kOne, static_cast<Small>(99)});
    checkAll<Wide>({Wide::kHuge, static_cast<Wide>(5)});
    for (const int8_t value : extremes<int8_t>())
        checkRoundTrip(value);
    checkLists(extremes<uint8_t>());
}

TEST(ParcelValue, StringsAndTheirListsSurvive) {
    const std::string zeros("a\0b\0", 4);
    for (const std::string& text :
         {std::string(), std::string("ascii"), zeros, std::string("h\u00e9\u4e16\U0001f600"),
          std::string("\U0010ffff\uffff\ud7ff\ue000"), std::string(5000, 'x')}) {
        checkRoundTrip(text);
        checkRoundTrip(std::optional{text});
    }
    checkRoundTrip(std::vector<std::string>{"", "one", zeros});
    checkRoundTrip(std::optional<std::vector<std::optional<std::string>>>{{"a", {}, "c"}});
    checkRoundTrip(std::array<std::string, 2>{"a", "b"});
}

TEST(ParcelValue, RecordsAndTheirListsSurvive) {
    const Record record{.number = -1, .text = "t", .list = {1, 2, 3}};
    checkRoundTrip(record);
    checkRoundTrip(std::optional{record});
    checkRoundTrip(std::optional<Record>{});
    checkRoundTrip(std::vector<Record>{record, {}, record});
    checkRoundTrip(std::optional<std::vector<std::optional<Record>>>{{record, {}, record}});
    checkRoundTrip(std::array<std::array<int32_t, 2>, 3>{{{1, 2}, {3, 4}, {5, 6}}});

    const ScopedAParcel parcel(AParcel_create());
    const auto onHeap = std::make_unique<Record>(record);
    ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), onHeap), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    std::unique_ptr<Record> result;
    ASSERT_EQ(ndk::AParcel_readNullableData(parcel.get(), &result), STATUS_OK);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(*result, record);
}

TEST(ParcelValue, HoldersKeepOneRecordOfAnyType) {
    const StableRecord record{{.number = -1, .text = "t", .list = {1, 2, 3}}};
    ndk::AParcelableHolder holder(ndk::STABILITY_VINTF);
    std::optional<StableRecord> out{record};
    EXPECT_EQ(holder.getParcelable(&out), STATUS_OK);
    EXPECT_FALSE(out) << "holds none yet";
    ASSERT_EQ(holder.setParcelable(record), STATUS_OK);
    EXPECT_EQ(holder.setParcelable(Record{}), STATUS_BAD_VALUE) << "promises too little";

    // Through a parcel, with a value behind it, and into a copy that outlives it.
    const ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), holder), STATUS_OK);
    AParcel_writeInt32(parcel.get(), 77);
    AParcel_setDataPosition(parcel.get(), 0);
    ndk::AParcelableHolder read(ndk::STABILITY_VINTF);
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
    int32_t next = 0;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 77);
    const ndk::AParcelableHolder copy(read);
    read.reset();
    EXPECT_EQ(read.getParcelable(&out), STATUS_OK);
    EXPECT_FALSE(out);
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(copy.getParcelable(&out), STATUS_OK);
        EXPECT_EQ(out, record);
    }
    std::optional<Record> other;
    EXPECT_EQ(copy.getParcelable(&other), STATUS_OK);
    EXPECT_FALSE(other) << "of another type";

    ndk::AParcelableHolder local(ndk::STABILITY_LOCAL);
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &local), STATUS_BAD_VALUE);
}

TEST(ParcelValue, PositionMovesFreely) {
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), -1), STATUS_BAD_VALUE);
    AParcel_writeInt64(parcel.get(), -1);
    AParcel_setDataPosition(parcel.get(), 0);
    AParcel_writeInt32(parcel.get(), 5);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 8);
    int32_t value = 0;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &value), STATUS_OK);
    EXPECT_EQ(value, -1);

    AParcel_setDataPosition(parcel.get(), INT32_MAX);
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &value), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(AParcel_reset(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 0);
}

TEST(ParcelValue, MarshalAppendAndUnmarshalCopyRanges) {
    const ScopedAParcel from(AParcel_create());
    for (int32_t i = 0; i < 4; ++i)
        AParcel_writeInt32(from.get(), i);
    std::array<uint8_t, 8> bytes{};
    EXPECT_EQ(AParcel_marshal(from.get(), bytes.data(), 4, 8), STATUS_OK);
    EXPECT_THAT(bytes, ElementsAreArray({1, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(AParcel_marshal(from.get(), bytes.data(), 12, 8), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_marshal(from.get(), bytes.data(), SIZE_MAX, 8), STATUS_BAD_VALUE);

    const ScopedAParcel to(AParcel_create());
    AParcel_writeInt32(to.get(), 9);
    EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 4, 8), STATUS_OK);
    EXPECT_THAT(bytesOf(to.get()), ElementsAreArray({9, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0}));
    for (const auto& [start, size] : {std::pair{12, 8}, {-4, 4}, {0, -4}}) {
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), start, size), STATUS_BAD_VALUE);
    }
    EXPECT_EQ(AParcel_appendFrom(from.get(), from.get(), 0, 16), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(from.get()), 32);

    EXPECT_EQ(AParcel_unmarshal(to.get(), bytes.data(), 5), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(to.get()), 8);
    EXPECT_THAT(bytesOf(to.get()), ElementsAreArray({1, 0, 0, 0, 2, 0, 0, 0}));
}

}  // namespace
