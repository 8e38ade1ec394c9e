#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_values.h>

/**
 * Parcels of C++ values, as generated code writes and reads them: AParcel_writeData() and
 * AParcel_readData() for values that must be there, AParcel_writeNullableData() and
 * AParcel_readNullableData() for those that may be absent. An absent value where one is needed
 * gives STATUS_UNEXPECTED_NULL, an absent list of anything but scalars or strings STATUS_NO_MEMORY,
 * as does a fixed-size array of another length. An absent interface is for the method to judge.
 *
 * A record that is read keeps what it held where the data has fewer fields. One whose size ends
 * behind the parcel is accepted: the next value is then missing.
 */
namespace ndk {

// Declared ahead, since lists hold lists and records.
template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

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
    const binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) return status;
    return present == 0 ? STATUS_UNEXPECTED_NULL : value->readFromParcel(parcel);
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
    return AParcel_readData(parcel, value);
}

/** True for a list that the interface language has; its bytes are unsigned. */
template <List L>
constexpr bool kIsKnownList = !std::same_as<typename L::value_type, int8_t> &&
                              (Vector<L> || !Unsigned<typename L::value_type>);

template <typename Nullable, List L>
binder_status_t writeList(AParcel* parcel, const L& list) {
    using T = typename L::value_type;
    static_assert(kIsKnownList<L>, "the interface language has no such list");
    if (list.size() > INT32_MAX) return STATUS_BAD_VALUE;
    const auto length = static_cast<int32_t>(list.size());
    if constexpr (std::same_as<T, bool>) {
        return AParcel_writeBoolArray(parcel, &list, length,
                                      [](const void* array, size_t index) -> bool {
                                          return (*static_cast<const L*>(array))[index];
                                      });
    } else if constexpr (Scalar<T>) {
        using W = typename Wire<T>::type;
        return FunctionsOf<W>::writeList(parcel, reinterpret_cast<const W*>(list.data()), length);
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

/** Makes out a list of length elements, or none for -1. False when it cannot be such a list. */
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
        list.resize(static_cast<size_t>(length));
        return true;
    } else {
        return static_cast<size_t>(length) == list.size();
    }
}

template <typename Nullable, typename Out>
binder_status_t readList(const AParcel* parcel, Out* out) {
    using L = std::remove_reference_t<decltype(listOf<Out>(out))>;
    using T = typename L::value_type;
    static_assert(kIsKnownList<L>, "the interface language has no such list");
    if constexpr (std::same_as<T, bool>) {
        return AParcel_readBoolArray(
                parcel, out, prepareList<Out>,
                [](void* array, size_t index, bool value) { listOf<Out>(array)[index] = value; });
    } else if constexpr (Scalar<T>) {
        using W = typename Wire<T>::type;
        return FunctionsOf<W>::readList(parcel, out, [](void* array, int32_t length, W** buffer) {
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
    // A bare length has no data to be measured by.
    constexpr int32_t kMaxLength = 1'000'000;
    const binder_status_t status = AParcel_readInt32(parcel, length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_UNEXPECTED_NULL;
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
        using W = typename impl::Wire<T>::type;
        return impl::FunctionsOf<W>::write(parcel, static_cast<W>(value));
    } else if constexpr (std::same_as<T, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (impl::List<T>) {
        return impl::writeList<std::false_type>(parcel, value);
    } else if constexpr (std::same_as<T, SpAIBinder>) {
        return AParcel_writeRequiredStrongBinder(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return AParcel_writeRequiredParcelFileDescriptor(parcel, value);
    } else if constexpr (impl::Interface<T>) {
        return T::element_type::writeToParcel(parcel, value);
    } else {
        return AParcel_writeParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    static_assert(!std::same_as<T, uint8_t>, "a single byte is signed");
    if constexpr (impl::Scalar<T>) {
        using W = typename impl::Wire<T>::type;
        return impl::FunctionsOf<W>::read(parcel, reinterpret_cast<W*>(value));
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
