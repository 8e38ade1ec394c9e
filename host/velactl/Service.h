#pragma once

#include <memory>
#include <string>

#include <aidl/velahost/IHost.h>
#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "host/codec/Operations.h"
#include "host/velactl/Report.h"

namespace velactl {

/** The name under which the main service is published. */
std::string instanceName();

/** Finds the published service. Does not wait for one. */
Failure connect(std::shared_ptr<codec::display::IVela>* out);

/** What the service's host offers beside it; null where there is none, as on a device. */
std::shared_ptr<aidl::velahost::IHost> connectHost();

/** Prints what is known of the service as one line of JSON. */
Failure info();

/** Prints every operation's signature and every record, or their parts as JSON; no service. */
Failure list();

/** Prints the service's dump. */
Failure dump();

/** Writes the frame that the display shows to the file, as SVG; "-" is stdout. */
Failure screenshot(int display, const std::string& file);

}  // namespace velactl
