#pragma once

#include <memory>
#include <string>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

namespace velactl {

/** The name under which the main service is published. */
std::string instanceName();

/** The published service; null, with the reason in *error, when none answers. Does not wait. */
std::shared_ptr<aidl::vendor::lumenforge::hardware::display::IVela> connect(std::string* error);

/** Prints what is known of the service as one line of JSON; returns the exit code. */
int info();

/** Prints every operation's signature and every record; needs no service. */
int list();

/** Lets the service write its dump to stdout; returns the exit code. */
int dump();

}  // namespace velactl
