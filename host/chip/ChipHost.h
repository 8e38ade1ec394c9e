#pragma once

#include <memory>

#include "host/chip/Chip.h"
#include "host/chip/ChipObserver.h"

namespace lmfg {

/**
 * Puts `chip` behind `VelaService::init()`, which from then on returns the service object of that
 * chip; null takes the chip away, and `init()` returns null. Until the first call there is no
 * chip. The observers see all that passes between that service object and the chip.
 *
 * A chip that was installed before is stopped and its service object destroyed, so nobody may use
 * that object any more. Each installation gives a fresh one without registered functions. What is
 * installed last stays until the process ends, past the destruction of static objects.
 */
[[gnu::visibility("default")]] void installChip(std::shared_ptr<Chip> chip,
                                                ChipObservers observers = {});

/** Replaces the observers of the installed chip: they see what begins from now on. Any thread. */
[[gnu::visibility("default")]] void observeChip(ChipObservers observers);

}  // namespace lmfg
