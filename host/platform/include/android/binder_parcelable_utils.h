#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

namespace ndk {

/** Whether a parcelable's definition is frozen. */
using parcelable_stability_t = int32_t;
enum : parcelable_stability_t {
    STABILITY_LOCAL = 0,
    STABILITY_VINTF = 1,
};

/**
 * A field that holds one parcelable of any type, or none, as bytes. Equal to itself only. Reading
 * what it holds moves a position: used by one thread at a time.
 */
class AParcelableHolder {
  public:
    AParcelableHolder() = delete;
    /** Holds parcelables that promise that stability at least. */
    explicit AParcelableHolder(parcelable_stability_t stability) : mStability(stability) {}
    AParcelableHolder(const AParcelableHolder& other) : mStability(other.mStability) {
        *this = other;
    }
    AParcelableHolder(AParcelableHolder&& other) noexcept : mStability(other.mStability) {
        *this = std::move(other);
    }

    /** Takes on what the other one holds; the stability stays. */
    AParcelableHolder& operator=(const AParcelableHolder& other) {
        if (this != &other) {
            reset();
            AParcel_appendFrom(other.mParcel.get(), mParcel.get(), 0,
                               AParcel_getDataSize(other.mParcel.get()));
        }
        return *this;
    }
    AParcelableHolder& operator=(AParcelableHolder&& other) noexcept {
        std::swap(mParcel, other.mParcel);
        return *this;
    }

    bool operator==(const AParcelableHolder& rhs) const { return this == &rhs; }
    auto operator<=>(const AParcelableHolder& rhs) const {
        return std::compare_three_way()(this, &rhs);
    }

    /** STATUS_BAD_VALUE for a parcelable that promises less. */
    template <typename T>
    binder_status_t setParcelable(const T& value) {
        if (mStability > T::_aidl_stability) return STATUS_BAD_VALUE;
        reset();
        binder_status_t status = AParcel_writeString(mParcel.get(), std::string(T::descriptor));
        if (status == STATUS_OK) status = value.writeToParcel(mParcel.get());
        if (status != STATUS_OK) reset();
        return status;
    }
    /** *out has no value where none, or one of another type, is held. */
    template <typename T>
    binder_status_t getParcelable(std::optional<T>* out) const {
        out->reset();
        if (AParcel_getDataSize(mParcel.get()) == 0) return STATUS_OK;
        AParcel_setDataPosition(mParcel.get(), 0);
        std::string descriptor;
        binder_status_t status = AParcel_readString(mParcel.get(), &descriptor);
        if (status != STATUS_OK || descriptor != T::descriptor) return status;
        status = out->emplace().readFromParcel(mParcel.get());
        if (status != STATUS_OK) out->reset();
        return status;
    }
    void reset() { AParcel_reset(mParcel.get()); }

    binder_status_t writeToParcel(AParcel* parcel) const {
        const int32_t size = AParcel_getDataSize(mParcel.get());
        binder_status_t status = AParcel_writeInt32(parcel, mStability);
        if (status == STATUS_OK) status = AParcel_writeInt32(parcel, size);
        if (status == STATUS_OK) status = AParcel_appendFrom(mParcel.get(), parcel, 0, size);
        return status;
    }
    /** STATUS_BAD_VALUE for data of a holder of another stability, or cut short. */
    binder_status_t readFromParcel(const AParcel* parcel) {
        reset();
        parcelable_stability_t stability = 0;
        int32_t size = 0;
        binder_status_t status = AParcel_readInt32(parcel, &stability);
        if (status == STATUS_OK && stability != mStability) status = STATUS_BAD_VALUE;
        if (status == STATUS_OK) status = AParcel_readInt32(parcel, &size);
        const int32_t start = AParcel_getDataPosition(parcel);
        if (status == STATUS_OK) status = AParcel_appendFrom(parcel, mParcel.get(), start, size);
        return status == STATUS_OK ? AParcel_setDataPosition(parcel, start + size) : status;
    }

  private:
    ScopedAParcel mParcel{AParcel_create()};
    parcelable_stability_t mStability;
};

}  // namespace ndk
