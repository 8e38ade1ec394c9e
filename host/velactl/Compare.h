#pragma once

#include <string>

#include "host/codec/Codec.h"

namespace velactl {

/**
 * The first place where the values differ, as "answer[2].value1", "answer" being the root's name;
 * empty when there is none. Of objects only the fields that `expected` names need to be equal when
 * namedFieldsOnly.
 */
std::string differenceAt(const codec::Json& expected, const codec::Json& actual,
                         bool namedFieldsOnly, const std::string& root);

/** What stands at such a place; null for nothing. */
codec::Json valueAt(const codec::Json& value, const std::string& place, const std::string& root);

}  // namespace velactl
