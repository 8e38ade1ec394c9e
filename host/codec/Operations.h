#pragma once

#include <map>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/ISoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

#include "host/codec/Operation.h"

namespace codec {

// Every operation of the interfaces, in their order.

const std::vector<CallableOperation<display::IVela>>& velaOperations();
const std::vector<CallableOperation<display::IVelaComposerClient>>& composerOperations();
const std::vector<CallableOperation<display::IVelaCallback>>& callbackOperations();
const std::vector<CallableOperation<display::ISoftVelaClient>>& softClientOperations();
const std::vector<CallableOperation<display::IVelaComposerCallback>>& composerCallbackOperations();

/** One interface as recordings and traces name it. */
struct Interface {
    std::string name;  // "vela", "composer", "callback", "softClient" or "composerCallback"
    bool isCallback;   // clients implement it
    std::vector<const Operation*> operations;  // that of code n at n - 1
};

/** All, by descriptor. */
const std::map<std::string, Interface>& interfaces();
/** Null when the descriptor is not one of ours. */
const Interface* findInterface(const std::string& descriptor);

/** The operation of that name; null when there is none. */
template <typename List>
const typename List::value_type* findOperation(const List& operations, const std::string& name) {
    for (const auto& operation : operations) {
        if (operation.name == name) return &operation;
    }
    return nullptr;
}

/** The records that appear in the operations. */
std::vector<RecordDescription> recordDescriptions();

}  // namespace codec
