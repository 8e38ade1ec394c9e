#include "support/NativeHandle.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>

#include <android/binder_auto_utils.h>

namespace android {

namespace {

using ::aidl::android::hardware::common::NativeHandle;

int duplicate(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

native_handle_t* fromAidl(const NativeHandle& record, bool doDup) {
    native_handle_t* handle = native_handle_create(static_cast<int>(record.fds.size()),
                                                   static_cast<int>(record.ints.size()));
    if (handle == nullptr) return nullptr;
    int* next = handle->data;
    for (const ndk::ScopedFileDescriptor& fd : record.fds) {
        // A failed duplication is deliberately no failure: -1 takes its place.
        *next++ = doDup ? duplicate(fd.get()) : fd.get();
    }
    std::copy_n(record.ints.data(), record.ints.size(), next);
    return handle;
}

}  // namespace

bool isAidlNativeHandleEmpty(const NativeHandle& handle) {
    return handle.fds.empty() && handle.ints.empty();
}

native_handle_t* makeFromAidl(const NativeHandle& handle) {
    return fromAidl(handle, false);
}

native_handle_t* dupFromAidl(const NativeHandle& handle) {
    return fromAidl(handle, true);
}

NativeHandle toAidl(const native_handle_t* handle, bool doDup) {
    NativeHandle record;
    record.fds.resize(static_cast<size_t>(handle->numFds));
    for (size_t i = 0; i < record.fds.size(); ++i) {
        record.fds.at(i).set(doDup ? duplicate(handle->data[i]) : handle->data[i]);
    }
    record.ints.resize(static_cast<size_t>(handle->numInts));
    std::copy_n(handle->data + handle->numFds, record.ints.size(), record.ints.data());
    return record;
}

NativeHandle makeToAidl(const native_handle_t* handle) {
    return toAidl(handle, false);
}

NativeHandle dupToAidl(const native_handle_t* handle) {
    return toAidl(handle, true);
}

}  // namespace android
