#pragma once

#include <string>

#include "host/codec/Codec.h"

namespace codec {

/** {"kind": "file", "size": 16}: what there is to say of a descriptor without reading from it. */
Json describeDescriptor(int fd);

/**
 * Opens what the JSON names: "path", {"path": ...}, or {"size": ...} for a file in memory of so
 * many zero bytes. The caller's; negative, with the reason in *error, when that cannot be done.
 */
int openDescriptor(const Json& json, std::string* error);

}  // namespace codec
