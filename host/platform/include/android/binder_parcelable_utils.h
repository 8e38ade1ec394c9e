#pragma once

#include <sstream>
#include <tuple>

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

}  // namespace ndk
