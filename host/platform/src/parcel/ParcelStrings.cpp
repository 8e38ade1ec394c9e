#include <cstring>
#include <string_view>

#include <android/binder_parcel.h>

#include "parcel/Parcel.h"
#include "parcel/ParcelLists.h"
#include "parcel/Utf.h"

namespace {

using binder::readLength;
using binder::refused;
using binder::writeLength;

constexpr size_t kUnit = sizeof(char16_t);

/** The units of the string at the position, and their number; null for what is no string. */
const uint8_t* readUnits(const AParcel* parcel, size_t* count) {
    int32_t length = 0;
    if (parcel->readValue(&length) != STATUS_OK || length < 0) return nullptr;
    *count = static_cast<size_t>(length);
    const uint8_t* units = nullptr;
    if (parcel->readInPlace((*count + 1) * kUnit, &units) != STATUS_OK) return nullptr;
    constexpr uint8_t kTerminator[kUnit] = {};
    return memcmp(units + *count * kUnit, kTerminator, kUnit) == 0 ? units : nullptr;
}

/** Reads one string; allocate(length, buffer) is its allocator. */
template <typename Allocate>
binder_status_t readText(const AParcel* parcel, Allocate allocate) {
    size_t count = 0;
    const uint8_t* const units = readUnits(parcel, &count);
    if (units == nullptr) return allocate(-1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;

    const size_t bytes = binder::utf8Length(units, count);
    if (bytes >= INT32_MAX) return STATUS_NO_MEMORY;
    char* text = nullptr;
    if (!allocate(static_cast<int32_t>(bytes + 1), &text) || text == nullptr) {
        return STATUS_NO_MEMORY;
    }
    binder::toUtf8(units, count, text);
    text[bytes] = '\0';
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr) return length == -1 ? parcel->writeValue(length) : STATUS_BAD_VALUE;
    if (length < 0) return STATUS_BAD_VALUE;
    const std::string_view text(string, static_cast<size_t>(length));
    const auto units = binder::utf16Length(text);
    if (!units) return STATUS_BAD_VALUE;
    const auto count = static_cast<int32_t>(*units);
    uint8_t* const room = parcel->writeInPlace(sizeof(count) + (*units + 1) * kUnit);
    if (room == nullptr) return STATUS_NO_MEMORY;
    memcpy(room, &count, sizeof(count));
    binder::toUtf16(text, room + sizeof(count));
    memset(room + sizeof(count) + *units * kUnit, 0, kUnit);
    return STATUS_OK;
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    return readText(parcel, [&](int32_t length, char** buffer) {
        return allocator(stringData, length, buffer);
    });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    binder_status_t status = writeLength(parcel, length);
    for (size_t i = 0; status == STATUS_OK && static_cast<int64_t>(i) < length; ++i) {
        int32_t elementLength = 0;
        const char* const element = getter(arrayData, i, &elementLength);
        status = AParcel_writeString(parcel, element, elementLength);
    }
    return status;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    int32_t length = 0;
    binder_status_t status = readLength(parcel, 1, &length);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length)) return refused(length);
    for (size_t i = 0; status == STATUS_OK && static_cast<int64_t>(i) < length; ++i) {
        status = readText(parcel, [&](int32_t elementLength, char** buffer) {
            return elementAllocator(arrayData, i, elementLength, buffer);
        });
    }
    return status;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    binder_status_t status = writeLength(parcel, length);
    for (size_t i = 0; status == STATUS_OK && static_cast<int64_t>(i) < length; ++i) {
        status = elementWriter(parcel, arrayData, i);
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length = 0;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (size_t i = 0; status == STATUS_OK && static_cast<int64_t>(i) < length; ++i) {
        status = elementReader(parcel, arrayData, i);
    }
    return status;
}
