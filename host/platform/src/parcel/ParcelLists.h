#pragma once

#include <cstdint>

#include <android/binder_status.h>

#include "parcel/Parcel.h"

namespace binder {

/** Writes the length of a list, -1 for one that is absent. */
inline binder_status_t writeLength(AParcel* parcel, int32_t length) {
    return length < -1 ? STATUS_BAD_VALUE : parcel->writeValue(length);
}

/**
 * Reads the length of a list whose elements take elementSize bytes each, at least. A list that is
 * not all there is refused before anybody makes room for it.
 */
inline binder_status_t readLength(const AParcel* parcel, size_t elementSize, int32_t* length) {
    const binder_status_t status = parcel->readValue(length);
    if (status != STATUS_OK) return status;
    if (*length < 0) return *length == -1 ? STATUS_OK : STATUS_BAD_VALUE;
    const auto count = static_cast<size_t>(*length);
    return count > parcel->available() / elementSize ? STATUS_NO_MEMORY : STATUS_OK;
}

/** What an allocator's refusal of a list of that length means. */
inline binder_status_t refused(int32_t length) {
    return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
}

}  // namespace binder
