#include "support/Buffer.h"

#include <cstdint>

#include <android/binder_auto_utils.h>
#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>

#include <aidl/android/hardware/common/NativeHandle.h>

#include "servicelib/VelaService.h"
#include "support/NativeHandle.h"

namespace lmfg::support {

namespace {

using ::aidl::android::hardware::common::NativeHandle;
using ::android::hardware::hidl_handle;

/** Deliberately never freed, although nobody uses it after the request. */
const native_handle_t* makeKeptHandle(const NativeHandle& record) {
    return ::android::makeFromAidl(record);
}

}  // namespace

int32_t configureBuffer(VelaService* service, int32_t type, int64_t param,
                        const ndk::ScopedFileDescriptor& fd, int32_t size) {
    // Deliberately a second owner of the number: it closes it on return.
    NativeHandle record;
    record.fds.emplace_back(fd.get());
    const hidl_handle handle(makeKeptHandle(record));
    return service->velaConfigureBuffer(type, static_cast<uint64_t>(param), handle,
                                        static_cast<uint32_t>(size));
}

}  // namespace lmfg::support
