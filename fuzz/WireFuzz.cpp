#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "host/platform/src/transport/Wire.h"

// Arbitrary bytes to the transport's parser. What it accepts lies within the bytes, and says itself
// again.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    for (const binder::ConnectionKind kind :
         {binder::ConnectionKind::kCall, binder::ConnectionKind::kOneway}) {
        const auto message = binder::parseMessage({data, size}, kind);
        if (!message.has_value()) continue;
        const auto* const end = data + size;
        if (message->data.data() < data || message->data.data() + message->data.size() > end) {
            __builtin_trap();
        }
        const auto table = binder::bytesOf(message->table);
        if (!std::equal(table.begin(), table.end(), end - table.size(), end)) __builtin_trap();
        for (const binder::ObjectRecord& object : message->table.objects) {
            const auto name = binder::endpointOf(object);
            const bool isBinder = object.kind == binder::ObjectRecord::Kind::kBinder;
            if (isBinder && binder::pidOfEndpoint(name) <= 0) __builtin_trap();
        }
    }
    return 0;
}
