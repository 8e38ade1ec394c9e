#pragma once

#include <cstdint>
#include <vector>

#include <aidl/platformtest/BnEcho.h>
#include <aidl/platformtest/Record.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcelable_utils.h>

using aidl::platformtest::Record;

/** Another record, which promises more. */
struct StableRecord : Record {
    static constexpr const char* descriptor = "platformtest.StableRecord";
    static constexpr ndk::parcelable_stability_t _aidl_stability = ndk::STABILITY_VINTF;
};

inline std::vector<uint8_t> bytesOf(const AParcel* parcel) {
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    AParcel_marshal(parcel, bytes.data(), 0, bytes.size());
    return bytes;
}

/** A rewound parcel of the first size bytes. */
inline ndk::ScopedAParcel parcelOf(const std::vector<uint8_t>& bytes, size_t size) {
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_unmarshal(parcel.get(), bytes.data(), size);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

/** A rewound parcel of these words. */
inline ndk::ScopedAParcel parcelOf(const std::vector<int32_t>& words) {
    ndk::ScopedAParcel parcel(AParcel_create());
    for (const int32_t word : words)
        AParcel_writeInt32(parcel.get(), word);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

/** Counts those that are alive. */
class Echo : public aidl::platformtest::BnEcho {
  public:
    static inline int gAlive = 0;
    Echo() { ++gAlive; }
    ~Echo() override { --gAlive; }
};

inline ndk::SpAIBinder newBinder() {
    return ndk::SharedRefBase::make<Echo>()->asBinder();
}
