#include <array>
#include <concepts>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

namespace {

using ndk::ScopedAParcel;
using ndk::ScopedFileDescriptor;
using ndk::SpAIBinder;

template <typename T>
binder_status_t readRequired(const AParcel* parcel) {
    T value{};
    return ndk::AParcel_readData(parcel, &value);
}

/** For values that are absent unless they are refused. */
template <typename T>
binder_status_t readNullable(const AParcel* parcel) {
    T value;
    value.emplace();
    const binder_status_t status = ndk::AParcel_readNullableData(parcel, &value);
    EXPECT_TRUE(status != STATUS_OK || !value.has_value());
    return status;
}

template <typename T>
binder_status_t readOutList(const AParcel* parcel) {
    T list;
    return ndk::AParcel_resizeVector(parcel, &list);
}

/** What AIDL makes of a nullable T: the elements of a list may be absent as well. */
template <typename T>
struct Nullable {
    using type = std::optional<T>;
};
template <typename T>
requires std::same_as<T, std::string> || std::same_as<T, Record>
struct Nullable<std::vector<T>> {
    using type = std::optional<std::vector<std::optional<T>>>;
};

template <typename T>
class ParcelLength : public testing::Test {};

using Lists = testing::Types<std::vector<bool>, std::vector<uint8_t>, std::vector<char16_t>,
                             std::vector<int32_t>, std::vector<int64_t>, std::vector<double>,
                             std::array<int32_t, 3>, std::vector<std::string>, std::vector<Record>,
                             std::vector<ScopedFileDescriptor>, std::vector<SpAIBinder>>;
TYPED_TEST_SUITE(ParcelLength, Lists);

TYPED_TEST(ParcelLength, IsChecked) {
    struct Case {
        std::vector<int32_t> words;
        binder_status_t status;
    };
    const Case cases[] = {
            {{-2}, STATUS_BAD_VALUE},        {{INT32_MIN}, STATUS_BAD_VALUE},
            {{INT32_MAX}, STATUS_NO_MEMORY}, {{2'000'000}, STATUS_NO_MEMORY},
            {{100}, STATUS_NO_MEMORY},       {{100, 0}, STATUS_NO_MEMORY},
            {{}, STATUS_NOT_ENOUGH_DATA},
    };
    using NullableList = typename Nullable<TypeParam>::type;
    for (const Case& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.words));
        EXPECT_EQ(readRequired<TypeParam>(parcelOf(test.words).get()), test.status);
        EXPECT_EQ(readNullable<NullableList>(parcelOf(test.words).get()), test.status);
    }
    EXPECT_NE(readRequired<TypeParam>(parcelOf({-1}).get()), STATUS_OK);
    EXPECT_EQ(readNullable<NullableList>(parcelOf({-1}).get()), STATUS_OK);
}

TEST(ParcelMalformed, Statuses) {
    using Three = std::array<int32_t, 3>;
    struct Case {
        binder_status_t (*read)(const AParcel*);
        binder_status_t status;
        std::vector<std::vector<int32_t>> parcels;
    };
    constexpr int32_t kNoEnd = 'a' | 'b' << 16;
    const Case cases[] = {
            // The length tells more than there is.
            {readRequired<std::vector<int32_t>>, STATUS_NO_MEMORY, {{3, 0, 0}}},
            {readRequired<std::vector<int64_t>>, STATUS_NO_MEMORY, {{2, 0, 0, 0}}},
            {readRequired<std::vector<char16_t>>, STATUS_NO_MEMORY, {{2, 'a'}}},
            {readRequired<std::vector<bool>>, STATUS_NO_MEMORY, {{2, 1}}},

            // Absent lists and elements.
            {readRequired<std::vector<bool>>, STATUS_UNEXPECTED_NULL, {{-1}}},
            {readRequired<std::vector<int32_t>>, STATUS_UNEXPECTED_NULL, {{-1}}},
            {readRequired<Three>, STATUS_UNEXPECTED_NULL, {{-1}}},
            {readRequired<std::vector<Record>>, STATUS_NO_MEMORY, {{-1}}},
            {readRequired<std::vector<ScopedFileDescriptor>>, STATUS_NO_MEMORY, {{-1}}},
            {readRequired<std::vector<SpAIBinder>>, STATUS_NO_MEMORY, {{-1}}},
            {readRequired<std::vector<std::string>>, STATUS_UNEXPECTED_NULL, {{1, -1}}},
            {readRequired<std::vector<Record>>, STATUS_UNEXPECTED_NULL, {{1, 0}}},
            {readRequired<std::vector<ScopedFileDescriptor>>, STATUS_UNEXPECTED_NULL, {{1, 0}}},

            // What is no string is an absent one.
            {readRequired<std::string>,
             STATUS_UNEXPECTED_NULL,
             {{-1}, {-2}, {INT32_MAX}, {}, {1, kNoEnd}, {2, kNoEnd}}},
            {readNullable<std::optional<std::string>>, STATUS_OK, {{-2}, {1, kNoEnd}}},
            {readRequired<std::string>, STATUS_OK, {{1, 'a'}}},

            // A record's size is its own, wherever it ends.
            {readRequired<Record>,
             STATUS_BAD_VALUE,
             {{1, INT32_MIN}, {1, 0}, {1, 3}, {1, INT32_MAX}}},
            {readRequired<Record>, STATUS_NOT_ENOUGH_DATA, {{1, 400}}},
            {readRequired<Record>, STATUS_OK, {{1, 400, 5, 0, 0, 0}}},
            {readRequired<std::vector<Record>>, STATUS_NOT_ENOUGH_DATA, {{2, 1, 400, 5, 0, 0, 0}}},
            {readRequired<Record>, STATUS_UNEXPECTED_NULL, {{0}}},
            {readNullable<std::optional<Record>>, STATUS_OK, {{0}}},

            {readOutList<std::vector<Record>>, STATUS_OK, {{3}}},
            {readOutList<std::vector<Record>>, STATUS_UNEXPECTED_NULL, {{-1}, {-2}}},
            {readOutList<std::vector<Record>>, STATUS_NO_MEMORY, {{INT32_MAX}}},
            {readOutList<std::vector<Record>>, STATUS_NOT_ENOUGH_DATA, {{}}},
            {readOutList<std::optional<std::vector<bool>>>, STATUS_OK, {{-1}}},
            {readOutList<std::optional<std::vector<bool>>>, STATUS_UNEXPECTED_NULL, {{-2}}},

            // Trailing data is nobody's.
            {readRequired<Three>, STATUS_OK, {{3, 1, 2, 3, 99}}},
    };
    for (const Case& test : cases) {
        for (const auto& words : test.parcels) {
            EXPECT_EQ(test.read(parcelOf(words).get()), test.status)
                    << "case " << &test - cases << ", " << testing::PrintToString(words);
        }
    }
    EXPECT_NE(readRequired<Three>(parcelOf({2, 1, 2}).get()), STATUS_OK);
    EXPECT_NE(readRequired<Three>(parcelOf({4, 1, 2, 3, 4}).get()), STATUS_OK);
}

TEST(ParcelMalformed, RecordsOfOtherVersionsAreRead) {
    const Record held{.number = 1, .text = "kept", .list = {1}};
    const Record expected{.number = 5, .text = "kept", .list = {1}};
    Record record = held;
    ASSERT_EQ(ndk::AParcel_readData(parcelOf({1, 8, 5, 1, 4, 77}).get(), &record), STATUS_OK);
    EXPECT_EQ(record, expected);
    std::vector<Record> list{held};
    ASSERT_EQ(ndk::AParcel_readData(parcelOf({1, 1, 8, 5}).get(), &list), STATUS_OK);
    EXPECT_EQ(list, std::vector{expected});

    const ScopedAParcel longer = parcelOf({1, 24, 5, 0, 0, 0, 1234 /*unknown*/, 77});
    ASSERT_EQ(ndk::AParcel_readData(longer.get(), &record), STATUS_OK);
    int32_t next = 0;
    EXPECT_EQ(AParcel_readInt32(longer.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 77);
}

TEST(ParcelMalformed, MalformedTextConverts) {
    const std::pair<std::string, std::string> cases[] = {
            {"a\x80", "a\u0080"},
            {"\xc3(", "\u00e8"},
            {"\xc0\x80", std::string(1, '\0')},
            {"\xe0\x80\xa9", ")"},
            // Surrogates: a half has no place in UTF-8 and is left out when read.
            {"a\xed\xa0\xbd", "a"},
            {"a\xed\xb8\x80z", "az"},
            {"\xed\xa0\xbd\xed\xa0\xbd\xed\xb8\x80", "\U0001f600"},
    };
    for (const auto& [written, read] : cases) {
        const ScopedAParcel parcel(AParcel_create());
        EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), written), STATUS_OK);
        AParcel_setDataPosition(parcel.get(), 0);
        std::string text = "stale";
        EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &text), STATUS_OK);
        EXPECT_EQ(text, read);
    }
    for (const std::string text : {"\xc3", "cut\xe4\xb8", "\xf0\x9f\x98", "\xff"}) {
        const ScopedAParcel parcel(AParcel_create());
        EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), text), STATUS_BAD_VALUE) << text.size();
    }
}

TEST(ParcelMalformed, LengthsOfWrittenListsAreChecked) {
    const ScopedAParcel owner(AParcel_create());
    AParcel* const parcel = owner.get();
    const int32_t data[] = {1, 2};
    EXPECT_EQ(AParcel_writeInt32Array(parcel, data, -1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeInt32Array(parcel, data, -2), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeInt32Array(parcel, nullptr, 1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel, "x", -1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel, nullptr, 0), STATUS_BAD_VALUE);
    const auto getter = [](const void*, size_t) { return true; };
    EXPECT_EQ(AParcel_writeBoolArray(parcel, nullptr, -2, getter), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_getDataSize(parcel), 0);
    EXPECT_EQ(AParcel_writeInt32Array(parcel, nullptr, -1), STATUS_OK);
    EXPECT_EQ(AParcel_writeInt32Array(parcel, nullptr, 0), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel), 8);
}

TEST(ParcelMalformed, RefusingAllocatorsEndTheRead) {
    const auto noInts = [](void*, int32_t, int32_t**) { return false; };
    const auto noRoom = [](void*, int32_t, int32_t** buffer) {
        *buffer = nullptr;
        return true;
    };
    const auto noString = [](void*, int32_t, char**) { return false; };
    EXPECT_EQ(AParcel_readInt32Array(parcelOf({1, 5}).get(), nullptr, noInts), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_readInt32Array(parcelOf({1, 5}).get(), nullptr, noRoom), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_readInt32Array(parcelOf({0}).get(), nullptr, noRoom), STATUS_OK);
    EXPECT_EQ(AParcel_readInt32Array(parcelOf({-1}).get(), nullptr, noInts),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AParcel_readString(parcelOf({1, 'a'}).get(), nullptr, noString), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_readString(parcelOf({-1}).get(), nullptr, noString), STATUS_UNEXPECTED_NULL);
}

TEST(ParcelMalformed, StringArraysOfTheCInterface) {
    using Strings = std::vector<std::optional<std::string>>;
    const Strings written{"a", std::nullopt, std::string("\0z", 2)};
    const ScopedAParcel parcel(AParcel_create());
    const auto get = [](const void* array, size_t index, int32_t* length) {
        const auto& element = (*static_cast<const Strings*>(array))[index];
        *length = element ? static_cast<int32_t>(element->size()) : -1;
        return element ? element->data() : nullptr;
    };
    ASSERT_EQ(AParcel_writeStringArray(parcel.get(), &written, 3, get), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    Strings result;
    const auto allocate = [](void* array, int32_t length) {
        static_cast<Strings*>(array)->resize(static_cast<size_t>(length));
        return true;
    };
    const auto allocateElement = [](void* array, size_t index, int32_t length, char** buffer) {
        auto& element = (*static_cast<Strings*>(array))[index];
        if (length < 0) return true;
        *buffer = element.emplace(static_cast<size_t>(length) - 1, '?').data();
        return true;
    };
    ASSERT_EQ(AParcel_readStringArray(parcel.get(), &result, allocate, allocateElement), STATUS_OK);
    EXPECT_EQ(result, written);
}

}  // namespace
