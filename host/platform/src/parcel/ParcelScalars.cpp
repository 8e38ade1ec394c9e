#include <algorithm>
#include <cstring>

#include <android/binder_parcel.h>

#include "parcel/Parcel.h"
#include "parcel/ParcelLists.h"

namespace {

using binder::readLength;
using binder::refused;
using binder::writeLength;

/** Values narrower than a word take a whole one when they stand alone. */
template <typename T>
binder_status_t readWord(const AParcel* parcel, T* value) {
    int32_t word = 0;
    const binder_status_t status = parcel->readValue(&word);
    if (status == STATUS_OK) *value = static_cast<T>(word);
    return status;
}

/** Null with a length, or data without one, is a mistake of the caller's. */
bool isLengthOf(const void* data, int32_t length) {
    return data == nullptr ? length == 0 || length == -1 : length >= 0;
}

template <typename T>
binder_status_t writeBlock(AParcel* parcel, const T* data, int32_t length) {
    if (!isLengthOf(data, length)) return STATUS_BAD_VALUE;
    const size_t size = length > 0 ? static_cast<size_t>(length) * sizeof(T) : 0;
    uint8_t* const room = parcel->writeInPlace(sizeof(length) + size);
    if (room == nullptr) return STATUS_NO_MEMORY;
    memcpy(room, &length, sizeof(length));
    std::copy_n(reinterpret_cast<const uint8_t*>(data), size, room + sizeof(length));
    return STATUS_OK;
}

template <typename T>
binder_status_t readBlock(const AParcel* parcel, void* arrayData,
                          bool (*allocator)(void*, int32_t, T**)) {
    int32_t length = 0;
    binder_status_t status = readLength(parcel, sizeof(T), &length);
    if (status != STATUS_OK) return status;
    T* array = nullptr;
    if (length <= 0) return allocator(arrayData, length, &array) ? STATUS_OK : refused(length);
    const size_t size = static_cast<size_t>(length) * sizeof(T);
    const uint8_t* bytes = nullptr;
    status = parcel->readInPlace(size, &bytes);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length, &array) || array == nullptr) return STATUS_NO_MEMORY;
    memcpy(array, bytes, size);
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return parcel->writeValue(value);
}
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return parcel->writeValue<int32_t>(value);
}
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return parcel->writeValue<int32_t>(value);
}
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return parcel->writeValue<int32_t>(value);
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return parcel->readValue(value);
}
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    return readWord(parcel, value);
}
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    return readWord(parcel, value);
}
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    return readWord(parcel, value);
}

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* data, int32_t length) {
    return writeBlock(parcel, data, length);
}
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* data, int32_t length) {
    return writeBlock(parcel, data, length);
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    binder_status_t status = writeLength(parcel, length);
    for (size_t i = 0; status == STATUS_OK && static_cast<int64_t>(i) < length; ++i) {
        status = AParcel_writeBool(parcel, getter(arrayData, i));
    }
    return status;
}

binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* data, int32_t length) {
    if (!isLengthOf(data, length)) return STATUS_BAD_VALUE;
    binder_status_t status = writeLength(parcel, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = AParcel_writeChar(parcel, data[i]);
    }
    return status;
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    return readBlock(parcel, arrayData, allocator);
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    int32_t length = 0;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length)) return refused(length);
    for (size_t i = 0; static_cast<int64_t>(i) < length; ++i) {
        bool value = false;
        status = AParcel_readBool(parcel, &value);
        if (status != STATUS_OK) return status;
        setter(arrayData, i, value);
    }
    return STATUS_OK;
}

binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) {
    int32_t length = 0;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    char16_t* array = nullptr;
    if (!allocator(arrayData, length, &array)) return refused(length);
    if (length > 0 && array == nullptr) return STATUS_NO_MEMORY;
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = AParcel_readChar(parcel, &array[i]);
    }
    return status;
}
