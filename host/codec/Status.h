#pragma once

#include <cstdint>
#include <string>

#include <android/binder_auto_utils.h>

#include "host/codec/Codec.h"

namespace codec {

/** "ok", or {"kind", "code", "description"} of an error. */
Json statusToJson(const AStatus* status);

/** The status that the JSON describes; false, with a reason in *error, when it describes none. */
bool statusFromJson(const Json& json, ndk::ScopedAStatus* out, std::string* error);

}  // namespace codec
