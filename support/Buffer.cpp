#include "support/Buffer.h"

#include <utility>

#include <hidl/HidlSupport.h>

#include "support/NativeHandle.h"

namespace lmfg::support {
namespace {

/** Deliberately never freed: the library may go on using the handle that it was given. */
const native_handle_t* makeKeptHandle(
        const ::aidl::android::hardware::common::NativeHandle& record) {
    return android::makeFromAidl(record);
}

}  // namespace

int32_t configureBuffer(VelaService* service, int32_t type, int64_t param,
                        const ndk::ScopedFileDescriptor& fd, int32_t size) {
    ::aidl::android::hardware::common::NativeHandle record;
    record.fds.emplace_back(fd.get());
    const native_handle_t* native = makeKeptHandle(record);
    int32_t result = 0;
    {
        const android::hardware::hidl_handle handle(native);
        result = service->velaConfigureBuffer(type, static_cast<uint64_t>(param), handle,
                                              static_cast<uint32_t>(size));
    }
    // Deliberately a second owner of the number: clients rely on the request closing it.
    android::release(&record);
    return result;
}

}  // namespace lmfg::support
