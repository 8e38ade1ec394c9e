#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velactl/Report.h"

namespace aidl::velahost {
class IHost;
}

/**
 * What is not the same on a PC, where velahost serves, and on a device: Platform.cpp is the PC's,
 * android/velactl has the device's, where whatever needs velahost fails and says so.
 */
namespace velactl {

/** Finds the published service. */
Failure connect(std::shared_ptr<codec::display::IVela>* out);

/** What to do when the service has died. */
std::string restartAdvice();

/** How to have a service that nobody has used yet. */
std::string freshAdvice();

/**
 * What the service's host offers beside it; null where there is none. A PC's only, as are the
 * sources that use it.
 */
std::shared_ptr<aidl::velahost::IHost> connectHost();

/** What velahost offers; a failure where there is no service, or none of velahost's. */
Failure connectHost(std::shared_ptr<aidl::velahost::IHost>* out);

/**
 * Returns when the events that the chip has raised are answered; at once where nobody can tell.
 * To be kept: finding who can tell is a call of its own.
 */
std::function<void()> settler();

/**
 * Tells, each time, why the chip has refused requests of this process since the last time; empty
 * where nobody can tell.
 */
std::function<std::vector<std::string>()> refusalTaker();

/** Writes the frame that the display shows to the file, as SVG; "-" is stdout. */
Failure screenshot(int display, const std::string& file);

}  // namespace velactl
