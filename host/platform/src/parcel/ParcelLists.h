#pragma once

#include <cstdint>

#include <android/binder_status.h>

#include "parcel/Parcel.h"
#include "transport/Wire.h"

namespace binder {

/** Writes the length of a list, -1 for one that is absent. */
inline binder_status_t writeLength(AParcel* parcel, int32_t length) {
    return length < -1 ? STATUS_BAD_VALUE : parcel->writeValue(length);
}

/**
 * Reads the length of a list whose elements take elementSize bytes each, at least, and that takes
 * extraSize bytes beyond them unless it is absent. A list that is not all there is refused before
 * anybody makes room for it: with STATUS_NO_MEMORY when no transaction could hold it.
 */
inline binder_status_t readLength(const AParcel* parcel, size_t elementSize, size_t extraSize,
                                  int32_t* length) {
    const binder_status_t status = parcel->readValue(length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length < 0) return STATUS_OK;
    const size_t size = (static_cast<size_t>(*length) * elementSize + extraSize + 3) & ~size_t{3};
    if (size <= parcel->available()) return STATUS_OK;
    return size > kMaxTransaction ? STATUS_NO_MEMORY : STATUS_NOT_ENOUGH_DATA;
}

/** What an allocator's refusal of a list of that length means. */
inline binder_status_t refused(int32_t length) {
    return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
}

}  // namespace binder
