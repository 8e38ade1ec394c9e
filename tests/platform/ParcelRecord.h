#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <android/binder_parcel_utils.h>

/** A record as the AIDL compiler would write it: led by its own size, fields in order. */
struct Record {
    int32_t number = 7;
    std::string text = "default";
    std::vector<int32_t> list;

    bool operator==(const Record&) const = default;

    binder_status_t writeToParcel(AParcel* parcel) const {
        const int32_t start = AParcel_getDataPosition(parcel);
        AParcel_writeInt32(parcel, 0);
        binder_status_t status = ndk::AParcel_writeData(parcel, number);
        if (status == STATUS_OK) status = ndk::AParcel_writeData(parcel, text);
        if (status == STATUS_OK) status = ndk::AParcel_writeData(parcel, list);
        const int32_t end = AParcel_getDataPosition(parcel);
        AParcel_setDataPosition(parcel, start);
        AParcel_writeInt32(parcel, end - start);
        AParcel_setDataPosition(parcel, end);
        return status;
    }

    binder_status_t readFromParcel(const AParcel* parcel) {
        const int32_t start = AParcel_getDataPosition(parcel);
        int32_t size = 0;
        binder_status_t status = AParcel_readInt32(parcel, &size);
        if (status != STATUS_OK) return status;
        if (size < 4 || start > INT32_MAX - size) return STATUS_BAD_VALUE;
        const auto more = [&] {
            return status == STATUS_OK && AParcel_getDataPosition(parcel) - start < size;
        };
        if (more()) status = ndk::AParcel_readData(parcel, &number);
        if (more()) status = ndk::AParcel_readData(parcel, &text);
        if (more()) status = ndk::AParcel_readData(parcel, &list);
        if (status == STATUS_OK) AParcel_setDataPosition(parcel, start + size);
        return status;
    }
};

inline std::vector<uint8_t> bytesOf(const AParcel* parcel) {
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    AParcel_marshal(parcel, bytes.data(), 0, bytes.size());
    return bytes;
}
