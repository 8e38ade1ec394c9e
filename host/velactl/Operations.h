#pragma once

#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

#include "host/velactl/Operation.h"

namespace velactl {

/** Every operation of the main service, in the interface's order. */
const std::vector<Operation<display::IVela>>& velaOperations();

/** Every operation of a composer client, in the interface's order. */
const std::vector<Operation<display::IVelaComposerClient>>& composerOperations();

/** The records that appear in the operations, each as "Name {type field, ...}". */
std::vector<std::string> recordDescriptions();

}  // namespace velactl
