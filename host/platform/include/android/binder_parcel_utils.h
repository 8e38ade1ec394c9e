#pragma once

#include <array>
#include <climits>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

/**
 * Parcels of C++ values, as generated code writes and reads them: AParcel_writeData() and
 * AParcel_readData() for values that must be there, AParcel_writeNullableData() and
 * AParcel_readNullableData() for those that may be absent. An absent value where one is needed, or
 * an absent element of its list, gives STATUS_UNEXPECTED_NULL; a fixed-size array of another
 * length, and a record that claims to go on behind the end of the parcel, STATUS_BAD_VALUE.
 */
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

// clang-format off
inline binder_status_t write(AParcel* p, int32_t v) { return AParcel_writeInt32(p, v); }
inline binder_status_t write(AParcel* p, uint32_t v) { return AParcel_writeUint32(p, v); }
inline binder_status_t write(AParcel* p, int64_t v) { return AParcel_writeInt64(p, v); }
inline binder_status_t write(AParcel* p, uint64_t v) { return AParcel_writeUint64(p, v); }
inline binder_status_t write(AParcel* p, float v) { return AParcel_writeFloat(p, v); }
inline binder_status_t write(AParcel* p, double v) { return AParcel_writeDouble(p, v); }
inline binder_status_t write(AParcel* p, bool v) { return AParcel_writeBool(p, v); }
inline binder_status_t write(AParcel* p, char16_t v) { return AParcel_writeChar(p, v); }
inline binder_status_t write(AParcel* p, int8_t v) { return AParcel_writeByte(p, v); }

inline binder_status_t read(const AParcel* p, int32_t* v) { return AParcel_readInt32(p, v); }
inline binder_status_t read(const AParcel* p, uint32_t* v) { return AParcel_readUint32(p, v); }
inline binder_status_t read(const AParcel* p, int64_t* v) { return AParcel_readInt64(p, v); }
inline binder_status_t read(const AParcel* p, uint64_t* v) { return AParcel_readUint64(p, v); }
inline binder_status_t read(const AParcel* p, float* v) { return AParcel_readFloat(p, v); }
inline binder_status_t read(const AParcel* p, double* v) { return AParcel_readDouble(p, v); }
inline binder_status_t read(const AParcel* p, bool* v) { return AParcel_readBool(p, v); }
inline binder_status_t read(const AParcel* p, char16_t* v) { return AParcel_readChar(p, v); }
inline binder_status_t read(const AParcel* p, int8_t* v) { return AParcel_readByte(p, v); }

inline binder_status_t writeBlock(AParcel* p, const int32_t* v, int32_t n) { return AParcel_writeInt32Array(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const uint32_t* v, int32_t n) { return AParcel_writeUint32Array(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const int64_t* v, int32_t n) { return AParcel_writeInt64Array(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const uint64_t* v, int32_t n) { return AParcel_writeUint64Array(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const float* v, int32_t n) { return AParcel_writeFloatArray(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const double* v, int32_t n) { return AParcel_writeDoubleArray(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const char16_t* v, int32_t n) { return AParcel_writeCharArray(p, v, n); }
inline binder_status_t writeBlock(AParcel* p, const int8_t* v, int32_t n) { return AParcel_writeByteArray(p, v, n); }

inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_int32ArrayAllocator a) { return AParcel_readInt32Array(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_uint32ArrayAllocator a) { return AParcel_readUint32Array(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_int64ArrayAllocator a) { return AParcel_readInt64Array(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_uint64ArrayAllocator a) { return AParcel_readUint64Array(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_floatArrayAllocator a) { return AParcel_readFloatArray(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_doubleArrayAllocator a) { return AParcel_readDoubleArray(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_charArrayAllocator a) { return AParcel_readCharArray(p, out, a); }
inline binder_status_t readBlock(const AParcel* p, void* out, AParcel_byteArrayAllocator a) { return AParcel_readByteArray(p, out, a); }
// clang-format on

}  // namespace impl

// Declared ahead, since lists hold lists and records.
template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

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

// --- records ---

/** Records are led by a word that tells whether they are there. */
template <impl::Parcelable P>
binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& value) {
    const binder_status_t status = AParcel_writeInt32(parcel, 1);
    return status == STATUS_OK ? value.writeToParcel(parcel) : status;
}

template <impl::Parcelable P>
binder_status_t AParcel_readParcelable(const AParcel* parcel, P* value) {
    int32_t present = 0;
    binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) return status;
    if (present == 0) return STATUS_UNEXPECTED_NULL;
    status = value->readFromParcel(parcel);
    if (status != STATUS_OK) return status;
    // A record moves the position to its own end, as its size word gives it.
    return AParcel_getDataPosition(parcel) > AParcel_getDataSize(parcel) ? STATUS_BAD_VALUE
                                                                         : STATUS_OK;
}

// --- lists ---

namespace impl {

template <typename T>
binder_status_t writeElement(AParcel* parcel, const T& value, std::true_type /*nullable*/) {
    return AParcel_writeNullableData(parcel, value);
}
template <typename T>
binder_status_t writeElement(AParcel* parcel, const T& value, std::false_type) {
    return AParcel_writeData(parcel, value);
}
template <typename T>
binder_status_t readElement(const AParcel* parcel, T* value, std::true_type /*nullable*/) {
    return AParcel_readNullableData(parcel, value);
}
template <typename T>
binder_status_t readElement(const AParcel* parcel, T* value, std::false_type) {
    const binder_status_t status = AParcel_readData(parcel, value);
    if constexpr (Interface<T>) {
        if (status == STATUS_OK && *value == nullptr) return STATUS_UNEXPECTED_NULL;
    }
    return status;
}

template <typename Nullable, List L>
binder_status_t writeList(AParcel* parcel, const L& list) {
    using T = typename L::value_type;
    if (list.size() > INT32_MAX) return STATUS_BAD_VALUE;
    const auto length = static_cast<int32_t>(list.size());
    if constexpr (std::same_as<T, bool>) {
        return AParcel_writeBoolArray(parcel, &list, length,
                                      [](const void* array, size_t index) -> bool {
                                          return (*static_cast<const L*>(array))[index];
                                      });
    } else if constexpr (Scalar<T>) {
        using W = typename Wire<T>::type;
        return writeBlock(parcel, reinterpret_cast<const W*>(list.data()), length);
    } else {
        return AParcel_writeParcelableArray(
                parcel, &list, length, [](AParcel* to, const void* array, size_t index) {
                    return writeElement(to, (*static_cast<const L*>(array))[index], Nullable());
                });
    }
}

/** The list in what is read into, which is a list or an optional one. */
template <typename Out>
auto& listOf(void* out) {
    if constexpr (Optional<Out>) {
        return **static_cast<Out*>(out);
    } else {
        return *static_cast<Out*>(out);
    }
}

/** Makes out a list of length elements, or none for -1. False when there must be one. */
template <typename Out>
bool prepareList(void* out, int32_t length) {
    if constexpr (Optional<Out>) {
        auto& optional = *static_cast<Out*>(out);
        if (length < 0) {
            optional.reset();
            return true;
        }
        optional.emplace();
    }
    if (length < 0) return false;
    auto& list = listOf<Out>(out);
    using L = std::remove_reference_t<decltype(list)>;
    if constexpr (Vector<L>) {
        // What a short record leaves unread keeps its default, not what stood there before.
        if constexpr (!Scalar<typename L::value_type>) list.clear();
        list.resize(static_cast<size_t>(length));
    }
    return true;
}

template <size_t N>
binder_status_t checkFixedLength(const AParcel* parcel) {
    const int32_t position = AParcel_getDataPosition(parcel);
    int32_t length = 0;
    const binder_status_t status = AParcel_readInt32(parcel, &length);
    if (status != STATUS_OK) return status;
    if (length >= 0 && static_cast<size_t>(length) != N) return STATUS_BAD_VALUE;
    return AParcel_setDataPosition(parcel, position);
}

template <typename Nullable, typename Out>
binder_status_t readList(const AParcel* parcel, Out* out) {
    using L = std::remove_reference_t<decltype(listOf<Out>(out))>;
    using T = typename L::value_type;
    if constexpr (FixedArray<L>) {
        const binder_status_t status = checkFixedLength<std::tuple_size_v<L>>(parcel);
        if (status != STATUS_OK) return status;
    }
    if constexpr (std::same_as<T, bool>) {
        return AParcel_readBoolArray(
                parcel, out, prepareList<Out>,
                [](void* array, size_t index, bool value) { listOf<Out>(array)[index] = value; });
    } else if constexpr (Scalar<T>) {
        using W = typename Wire<T>::type;
        return readBlock(parcel, out, [](void* array, int32_t length, W** buffer) {
            if (!prepareList<Out>(array, length)) return false;
            if (length >= 0) *buffer = reinterpret_cast<W*>(listOf<Out>(array).data());
            return true;
        });
    } else {
        return AParcel_readParcelableArray(
                parcel, out, prepareList<Out>, [](const AParcel* from, void* array, size_t index) {
                    return readElement(from, &listOf<Out>(array)[index], Nullable());
                });
    }
}

}  // namespace impl

template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& value) {
    return impl::writeList<std::false_type>(parcel, value);
}
/** The elements of an optional list are optional as well. */
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::optional<std::vector<T>>& value) {
    return value ? impl::writeList<std::true_type>(parcel, *value) : AParcel_writeInt32(parcel, -1);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* value) {
    return impl::readList<std::false_type>(parcel, value);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::optional<std::vector<T>>* value) {
    return impl::readList<std::true_type>(parcel, value);
}

/** The length alone, for a list that the called method fills. */
template <typename T>
binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& value) {
    if (value.size() > INT32_MAX) return STATUS_BAD_VALUE;
    return AParcel_writeInt32(parcel, static_cast<int32_t>(value.size()));
}
template <typename T>
binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                        const std::optional<std::vector<T>>& value) {
    return value ? AParcel_writeVectorSize(parcel, *value) : AParcel_writeInt32(parcel, -1);
}

namespace impl {

inline binder_status_t readVectorSize(const AParcel* parcel, int32_t* length) {
    // A bare length has no data to measure it by. Longer lists cannot travel back in any reply.
    constexpr int32_t kMaxLength = 1'040'384;
    const binder_status_t status = AParcel_readInt32(parcel, length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    return *length > kMaxLength ? STATUS_NO_MEMORY : STATUS_OK;
}

}  // namespace impl

/** Reads a length and gives the list that many elements. */
template <typename T>
binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* value) {
    int32_t length = 0;
    const binder_status_t status = impl::readVectorSize(parcel, &length);
    if (status != STATUS_OK) return status;
    return impl::prepareList<std::vector<T>>(value, length) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
}
template <typename T>
binder_status_t AParcel_resizeVector(const AParcel* parcel, std::optional<std::vector<T>>* value) {
    int32_t length = 0;
    const binder_status_t status = impl::readVectorSize(parcel, &length);
    if (status == STATUS_OK) impl::prepareList<std::optional<std::vector<T>>>(value, length);
    return status;
}

// --- any value ---

template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
    if constexpr (impl::Scalar<T>) {
        return impl::write(parcel, static_cast<typename impl::Wire<T>::type>(value));
    } else if constexpr (std::same_as<T, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (impl::List<T>) {
        return impl::writeList<std::false_type>(parcel, value);
    } else if constexpr (std::same_as<T, SpAIBinder>) {
        return AParcel_writeRequiredStrongBinder(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return AParcel_writeRequiredParcelFileDescriptor(parcel, value);
    } else if constexpr (impl::Interface<T>) {
        return value ? T::element_type::writeToParcel(parcel, value) : STATUS_UNEXPECTED_NULL;
    } else {
        return AParcel_writeParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    if constexpr (impl::Scalar<T>) {
        typename impl::Wire<T>::type wire = {};
        const binder_status_t status = impl::read(parcel, &wire);
        if (status == STATUS_OK) *value = static_cast<T>(wire);
        return status;
    } else if constexpr (std::same_as<T, std::string>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (impl::List<T>) {
        return impl::readList<std::false_type>(parcel, value);
    } else if constexpr (std::same_as<T, SpAIBinder>) {
        return AParcel_readRequiredStrongBinder(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return AParcel_readRequiredParcelFileDescriptor(parcel, value);
    } else if constexpr (impl::Interface<T>) {
        return T::element_type::readFromParcel(parcel, value);
    } else {
        return AParcel_readParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value) {
    if constexpr (std::same_as<T, SpAIBinder>) {
        return AParcel_writeNullableStrongBinder(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return AParcel_writeNullableParcelFileDescriptor(parcel, value);
    } else if constexpr (impl::Interface<T>) {
        return T::element_type::writeToParcel(parcel, value);
    } else if constexpr (impl::List<T>) {
        // An array within an optional array of arrays: it is there, its elements may be absent.
        return impl::writeList<std::true_type>(parcel, value);
    } else {
        static_assert(impl::Optional<T>, "this type cannot be absent");
        using Value = typename std::pointer_traits<decltype(&*value)>::element_type;
        using U = std::remove_const_t<Value>;
        if constexpr (impl::List<U>) {
            return value ? impl::writeList<std::true_type>(parcel, *value)
                         : AParcel_writeInt32(parcel, -1);
        } else if constexpr (std::same_as<U, std::string>) {
            return AParcel_writeString(parcel, value);
        } else {
            return value ? AParcel_writeParcelable(parcel, *value) : AParcel_writeInt32(parcel, 0);
        }
    }
}

template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value) {
    if constexpr (std::same_as<T, SpAIBinder>) {
        return AParcel_readNullableStrongBinder(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return AParcel_readNullableParcelFileDescriptor(parcel, value);
    } else if constexpr (impl::Interface<T>) {
        return T::element_type::readFromParcel(parcel, value);
    } else if constexpr (impl::List<T>) {
        return impl::readList<std::true_type>(parcel, value);
    } else {
        static_assert(impl::Optional<T>, "this type cannot be absent");
        using U = std::remove_reference_t<decltype(**value)>;
        if constexpr (impl::List<U>) {
            return impl::readList<std::true_type>(parcel, value);
        } else if constexpr (std::same_as<U, std::string>) {
            return AParcel_readString(parcel, value);
        } else {
            const int32_t position = AParcel_getDataPosition(parcel);
            int32_t present = 0;
            const binder_status_t status = AParcel_readInt32(parcel, &present);
            if (status != STATUS_OK) return status;
            value->reset();
            if (present == 0) return STATUS_OK;
            if constexpr (impl::kIs<T, std::unique_ptr>) {
                *value = std::make_unique<U>();
            } else {
                value->emplace();
            }
            AParcel_setDataPosition(parcel, position);
            return AParcel_readParcelable(parcel, &**value);
        }
    }
}

/** A record that may be absent: std::optional or std::unique_ptr of it. */
template <impl::Optional T>
binder_status_t AParcel_writeNullableParcelable(AParcel* parcel, const T& value) {
    return AParcel_writeNullableData(parcel, value);
}
template <impl::Optional T>
binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, T* value) {
    return AParcel_readNullableData(parcel, value);
}

}  // namespace ndk
