#pragma once

#include <cutils/native_handle.h>

#include <aidl/android/hardware/common/NativeHandle.h>

/** Conversions between the interface's handle record and the platform's native handle. */
namespace android {

/** Whether the record holds neither descriptors nor integers. */
[[nodiscard]] bool isAidlNativeHandleEmpty(
        const ::aidl::android::hardware::common::NativeHandle& handle);

/**
 * A new handle with the record's own descriptor numbers, which stay the record's. The caller frees
 * the handle. Null when the platform refuses the counts.
 */
[[nodiscard]] native_handle_t* makeFromAidl(
        const ::aidl::android::hardware::common::NativeHandle& handle);

/**
 * A new handle with duplicates of the record's descriptors (close-on-exec); one that cannot be
 * duplicated is -1. The caller closes and frees the handle. Null when the platform refuses the
 * counts.
 */
[[nodiscard]] native_handle_t* dupFromAidl(
        const ::aidl::android::hardware::common::NativeHandle& handle);

/**
 * A record with the handle's descriptors: duplicates (close-on-exec, -1 for one that cannot be
 * duplicated), or else the numbers themselves, which the record then owns. `handle` is not null; a
 * negative count ends the process.
 */
[[nodiscard]] ::aidl::android::hardware::common::NativeHandle toAidl(const native_handle_t* handle,
                                                                     bool doDup);

/** toAidl() taking the descriptors over. */
[[nodiscard]] ::aidl::android::hardware::common::NativeHandle makeToAidl(
        const native_handle_t* handle);

/** toAidl() duplicating the descriptors. */
[[nodiscard]] ::aidl::android::hardware::common::NativeHandle dupToAidl(
        const native_handle_t* handle);

}  // namespace android
