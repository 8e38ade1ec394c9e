#pragma once

#include <cstdint>

#include <android/binder_auto_utils.h>

#include "servicelib/VelaService.h"

namespace lmfg::support {

/**
 * Hands a buffer to the library's velaConfigureBuffer and returns its result code. `param` and
 * `size` are passed bit for bit. Closes the descriptor number that `fd` holds, which goes on naming
 * it. The library may use handle and descriptor during the call only.
 */
int32_t configureBuffer(VelaService* service, int32_t type, int64_t param,
                        const ndk::ScopedFileDescriptor& fd, int32_t size);

}  // namespace lmfg::support
