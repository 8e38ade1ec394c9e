#include <array>
#include <concepts>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <gtest/gtest.h>

#include "ParcelRecord.h"

namespace {

using ndk::ScopedAParcel;

/** A rewound parcel of these words. */
ScopedAParcel parcelOf(std::initializer_list<int32_t> words) {
    ScopedAParcel parcel(AParcel_create());
    for (const int32_t word : words)
        AParcel_writeInt32(parcel.get(), word);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

template <typename T>
binder_status_t readNullable(const AParcel* parcel) {
    T value{};
    return ndk::AParcel_readNullableData(parcel, &value);
}
template <typename T>
binder_status_t readRequired(const AParcel* parcel) {
    T value{};
    return ndk::AParcel_readData(parcel, &value);
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

using Lists = testing::Types<std::string, std::vector<bool>, std::vector<uint8_t>,
                             std::vector<char16_t>, std::vector<int32_t>, std::vector<int64_t>,
                             std::vector<double>, std::vector<std::string>, std::vector<Record>,
                             std::vector<ndk::ScopedFileDescriptor>, std::vector<ndk::SpAIBinder>>;
TYPED_TEST_SUITE(ParcelLength, Lists);

TYPED_TEST(ParcelLength, IsChecked) {
    struct Case {
        std::initializer_list<int32_t> words;
        binder_status_t required;
        binder_status_t nullable;
    };
    const Case cases[] = {
            {{-1}, STATUS_UNEXPECTED_NULL, STATUS_OK},
            {{-2}, STATUS_BAD_VALUE, STATUS_BAD_VALUE},
            {{INT32_MIN}, STATUS_BAD_VALUE, STATUS_BAD_VALUE},
            {{INT32_MAX}, STATUS_NO_MEMORY, STATUS_NO_MEMORY},
            {{2'000'000}, STATUS_NO_MEMORY, STATUS_NO_MEMORY},
            {{100}, STATUS_NOT_ENOUGH_DATA, STATUS_NOT_ENOUGH_DATA},
            {{100, 0}, STATUS_NOT_ENOUGH_DATA, STATUS_NOT_ENOUGH_DATA},
            {{}, STATUS_NOT_ENOUGH_DATA, STATUS_NOT_ENOUGH_DATA},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(testing::PrintToString(std::vector<int32_t>(test.words)));
        EXPECT_EQ(readRequired<TypeParam>(parcelOf(test.words).get()), test.required);
        EXPECT_EQ(readNullable<typename Nullable<TypeParam>::type>(parcelOf(test.words).get()),
                  test.nullable);
    }
}

TEST(ParcelMalformed, AbsentElementsAreRefusedWhereTheyAreNeeded) {
    EXPECT_EQ(readRequired<std::vector<std::string>>(parcelOf({1, -1}).get()),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(readRequired<std::vector<Record>>(parcelOf({1, 0}).get()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(readRequired<std::vector<ndk::ScopedFileDescriptor>>(parcelOf({1, 0}).get()),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(readRequired<Record>(parcelOf({0}).get()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(readNullable<std::optional<Record>>(parcelOf({0}).get()), STATUS_OK);
}

TEST(ParcelMalformed, FixedSizeArraysHaveTheirSize) {
    using Three = std::array<int32_t, 3>;
    EXPECT_EQ(readRequired<Three>(parcelOf({2, 1, 2}).get()), STATUS_BAD_VALUE);
    EXPECT_EQ(readRequired<Three>(parcelOf({4, 1, 2, 3, 4}).get()), STATUS_BAD_VALUE);
    EXPECT_EQ(readRequired<Three>(parcelOf({-1}).get()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(readNullable<std::optional<Three>>(parcelOf({-1}).get()), STATUS_OK);
    EXPECT_EQ(readRequired<Three>(parcelOf({3, 1, 2, 3, 99}).get()), STATUS_OK);
}

TEST(ParcelMalformed, RecordSizeIsChecked) {
    for (const int32_t size : {INT32_MIN, -1, 0, 3, INT32_MAX}) {
        EXPECT_EQ(readRequired<Record>(parcelOf({1, size}).get()), STATUS_BAD_VALUE) << size;
    }
    const ScopedAParcel parcel = parcelOf({1, 400, 5, 0, 0, 0});
    EXPECT_EQ(readRequired<Record>(parcel.get()), STATUS_BAD_VALUE) << "ends behind the parcel";
}

TEST(ParcelMalformed, ShortRecordKeepsDefaults) {
    const ScopedAParcel parcel = parcelOf({1, 8, 5, 1, 4, 77});
    Record record{.number = 1, .text = "kept", .list = {}};
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &record), STATUS_OK);
    EXPECT_EQ(record, (Record{.number = 5, .text = "kept", .list = {}}));

    // In a list as well, whatever stood in it before.
    const ScopedAParcel list = parcelOf({1, 1, 8, 5});
    std::vector<Record> records{Record{.number = 1, .text = "old", .list = {1}}};
    ASSERT_EQ(ndk::AParcel_readData(list.get(), &records), STATUS_OK);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0], (Record{.number = 5, .text = "default", .list = {}}));
}

TEST(ParcelMalformed, LongRecordIsSkippedToItsEnd) {
    const ScopedAParcel parcel = parcelOf({1, 24, 5, 0, 0, 0, 1234 /*of a later version*/, 77});
    Record record;
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &record), STATUS_OK);
    int32_t next = 0;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 77);
}

TEST(ParcelMalformed, OutListLengthsAreChecked) {
    const auto resize = [](int32_t length) {
        std::vector<Record> list;
        return ndk::AParcel_resizeVector(parcelOf({length}).get(), &list);
    };
    EXPECT_EQ(resize(3), STATUS_OK);
    EXPECT_EQ(resize(-1), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(resize(-2), STATUS_BAD_VALUE);
    EXPECT_EQ(resize(INT32_MAX), STATUS_NO_MEMORY);
    std::optional<std::vector<int32_t>> list{{1, 2}};
    EXPECT_EQ(ndk::AParcel_resizeVector(parcelOf({-1}).get(), &list), STATUS_OK);
    EXPECT_FALSE(list);
}

TEST(ParcelMalformed, InvalidUtf8IsNotWritten) {
    for (const char* text :
         {"\x80", "\xc3", "\xc3(", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
          "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xff", "fine\xe4\xb8", "\xf0\x9f\x98"}) {
        const ScopedAParcel parcel(AParcel_create());
        EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::string(text)), STATUS_BAD_VALUE)
                << testing::PrintToString(text);
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    }
}

TEST(ParcelMalformed, InvalidUtf16IsRead) {
    struct Case {
        std::u16string units;
        std::string text;
    };
    for (const Case& test : {Case{{u'a', 0xd83d, u'b'}, "ab"}, Case{{u'a', 0xde00, u'b'}, "ab"},
                             Case{{0xd83d}, ""}, Case{{0xd83d, 0xd83d, 0xde00}, "\U0001f600"}}) {
        const ScopedAParcel parcel(AParcel_create());
        std::vector<uint8_t> bytes(4 + (test.units.size() + 1) * 2);
        bytes.resize((bytes.size() + 3) & ~size_t{3});
        bytes[0] = static_cast<uint8_t>(test.units.size());
        memcpy(&bytes[4], test.units.data(), test.units.size() * 2);
        AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
        std::string text = "stale";
        EXPECT_EQ(ndk::AParcel_readData(parcel.get(), &text), STATUS_OK);
        EXPECT_EQ(text, test.text);
    }
}

TEST(ParcelMalformed, StringNeedsItsTerminator) {
    EXPECT_EQ(readRequired<std::string>(parcelOf({1, 'a'}).get()), STATUS_OK);
    EXPECT_EQ(readRequired<std::string>(parcelOf({1, 'a' | 'b' << 16}).get()), STATUS_BAD_VALUE);
    EXPECT_EQ(readRequired<std::string>(parcelOf({2, 'a' | 'b' << 16}).get()),
              STATUS_NOT_ENOUGH_DATA);
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
