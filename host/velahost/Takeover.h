#pragma once

#include <string>

/**
 * Makes this process the host of the service manager, which a velahost always is: so none serves
 * where nobody looks for it. Another velahost is named, or with `replace` asked to end and awaited.
 * Empty, or why it is not the host.
 */
std::string becomeHost(bool replace);
