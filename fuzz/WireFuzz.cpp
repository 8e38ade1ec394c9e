#include <cstddef>
#include <cstdint>

#include "host/platform/src/transport/Wire.h"

// Arbitrary bytes to the transport's parser. What it accepts lies within the bytes.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    for (const binder::ConnectionKind kind :
         {binder::ConnectionKind::kControl, binder::ConnectionKind::kCall,
          binder::ConnectionKind::kOneway}) {
        const auto message = binder::parseMessage({data, size}, kind);
        if (!message.has_value()) continue;
        const auto* const end = data + size;
        if (message->data.data() < data || message->data.data() + message->data.size() > end) {
            __builtin_trap();
        }
        for (const binder::ObjectRecord& object : message->objects) {
            if (object.endpoint.data() + object.endpoint.size() >
                reinterpret_cast<const char*>(end)) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
