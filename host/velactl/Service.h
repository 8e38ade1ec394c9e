#pragma once

#include <string>

#include "host/velactl/Report.h"

namespace velactl {

/** The name under which the main service is published. */
std::string instanceName();

/** Prints what is known of the service as one line of JSON. */
Failure info();

/** Prints every operation's signature and every record, or their parts as JSON; no service. */
Failure list();

/** Prints the service's dump. */
Failure dump();

}  // namespace velactl
