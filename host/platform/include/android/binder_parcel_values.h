#pragma once

#include <array>
#include <climits>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

/** The single values of parcels, and what binder_parcel_utils.h tells types apart by. */
namespace ndk {

namespace impl {

template <typename T, template <typename...> class Template>
constexpr bool kIs = false;
template <template <typename...> class Template, typename... Args>
constexpr bool kIs<Template<Args...>, Template> = true;

template <typename T>
constexpr bool kIsFixedArray = false;
template <typename T, size_t N>
constexpr bool kIsFixedArray<std::array<T, N>> = true;

template <typename T>
concept Optional = kIs<T, std::optional> || kIs<T, std::unique_ptr>;
template <typename T>
concept Vector = kIs<T, std::vector>;
template <typename T>
concept FixedArray = kIsFixedArray<T>;
template <typename T>
concept List = Vector<T> || FixedArray<T>;
template <typename T>
concept Scalar = std::is_arithmetic_v<T> || std::is_enum_v<T>;
template <typename T>
concept Interface = kIs<T, std::shared_ptr>;
template <typename T>
concept Unsigned = std::same_as<T, uint32_t> || std::same_as<T, uint64_t>;
template <typename T>
concept Parcelable = requires(T value, const T& constant, AParcel* parcel) {
    { value.readFromParcel(parcel) } -> std::same_as<binder_status_t>;
    { constant.writeToParcel(parcel) } -> std::same_as<binder_status_t>;
};

// An enum travels as its underlying type; bytes travel signed.
template <typename T>
struct Wire {
    using type = T;
};
template <typename T>
requires std::is_enum_v<T>
struct Wire<T> : Wire<std::underlying_type_t<T>> {
};
template <>
struct Wire<uint8_t> : Wire<int8_t> {};

/**
 * The functions for one scalar type: alone, and as a list that lies in memory as such. What the
 * interface language does not have is not there: unsigned integers stand in vectors only.
 */
template <auto Write, auto Read, auto WriteList, auto ReadList>
struct Functions {
    static constexpr auto write = Write;
    static constexpr auto read = Read;
    static constexpr auto writeList = WriteList;
    static constexpr auto readList = ReadList;
};
template <typename T>
struct FunctionsOf;
template <>
struct FunctionsOf<bool> : Functions<AParcel_writeBool, AParcel_readBool, nullptr, nullptr> {};
template <>
struct FunctionsOf<int32_t> : Functions<AParcel_writeInt32, AParcel_readInt32,
                                        AParcel_writeInt32Array, AParcel_readInt32Array> {};
template <>
struct FunctionsOf<uint32_t>
    : Functions<nullptr, nullptr, AParcel_writeUint32Array, AParcel_readUint32Array> {};
template <>
struct FunctionsOf<int64_t> : Functions<AParcel_writeInt64, AParcel_readInt64,
                                        AParcel_writeInt64Array, AParcel_readInt64Array> {};
template <>
struct FunctionsOf<uint64_t>
    : Functions<nullptr, nullptr, AParcel_writeUint64Array, AParcel_readUint64Array> {};
template <>
struct FunctionsOf<float> : Functions<AParcel_writeFloat, AParcel_readFloat,
                                      AParcel_writeFloatArray, AParcel_readFloatArray> {};
template <>
struct FunctionsOf<double> : Functions<AParcel_writeDouble, AParcel_readDouble,
                                       AParcel_writeDoubleArray, AParcel_readDoubleArray> {};
template <>
struct FunctionsOf<char16_t> : Functions<AParcel_writeChar, AParcel_readChar,
                                         AParcel_writeCharArray, AParcel_readCharArray> {};
template <>
struct FunctionsOf<int8_t> : Functions<AParcel_writeByte, AParcel_readByte, AParcel_writeByteArray,
                                       AParcel_readByteArray> {};

}  // namespace impl

// --- strings ---

inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& value) {
    if (value.size() > INT32_MAX) return STATUS_BAD_VALUE;
    return ::AParcel_writeString(parcel, value.data(), static_cast<int32_t>(value.size()));
}

inline binder_status_t AParcel_writeString(AParcel* parcel,
                                           const std::optional<std::string>& value) {
    return value ? AParcel_writeString(parcel, *value) : ::AParcel_writeString(parcel, nullptr, -1);
}

inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* value) {
    return ::AParcel_readString(parcel, value, [](void* out, int32_t length, char** buffer) {
        if (length < 1) return false;
        auto& string = *static_cast<std::string*>(out);
        string.resize(static_cast<size_t>(length) - 1);
        *buffer = string.data();
        return true;
    });
}

inline binder_status_t AParcel_readString(const AParcel* parcel,
                                          std::optional<std::string>* value) {
    return ::AParcel_readString(parcel, value, [](void* out, int32_t length, char** buffer) {
        auto& string = *static_cast<std::optional<std::string>*>(out);
        if (length < 1) {
            string.reset();
            return true;
        }
        string.emplace(static_cast<size_t>(length) - 1, '\0');
        *buffer = string->data();
        return true;
    });
}

// --- binders and descriptors ---

inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel, const SpAIBinder& value) {
    return AParcel_writeStrongBinder(parcel, value.get());
}

inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel, SpAIBinder* value) {
    AIBinder* binder = nullptr;
    const binder_status_t status = AParcel_readStrongBinder(parcel, &binder);
    if (status == STATUS_OK) value->set(binder);
    return status;
}

inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel, const SpAIBinder& value) {
    if (value.get() == nullptr) return STATUS_UNEXPECTED_NULL;
    return AParcel_writeStrongBinder(parcel, value.get());
}

inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel, SpAIBinder* value) {
    const binder_status_t status = AParcel_readNullableStrongBinder(parcel, value);
    return status == STATUS_OK && value->get() == nullptr ? STATUS_UNEXPECTED_NULL : status;
}

inline binder_status_t AParcel_writeNullableParcelFileDescriptor(
        AParcel* parcel, const ScopedFileDescriptor& value) {
    return AParcel_writeParcelFileDescriptor(parcel, value.get());
}

inline binder_status_t AParcel_readNullableParcelFileDescriptor(const AParcel* parcel,
                                                                ScopedFileDescriptor* value) {
    int fd = -1;
    const binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &fd);
    if (status == STATUS_OK) value->set(fd);
    return status;
}

inline binder_status_t AParcel_writeRequiredParcelFileDescriptor(
        AParcel* parcel, const ScopedFileDescriptor& value) {
    if (value.get() < 0) return STATUS_UNEXPECTED_NULL;
    return AParcel_writeParcelFileDescriptor(parcel, value.get());
}

inline binder_status_t AParcel_readRequiredParcelFileDescriptor(const AParcel* parcel,
                                                                ScopedFileDescriptor* value) {
    const binder_status_t status = AParcel_readNullableParcelFileDescriptor(parcel, value);
    return status == STATUS_OK && value->get() < 0 ? STATUS_UNEXPECTED_NULL : status;
}

}  // namespace ndk
