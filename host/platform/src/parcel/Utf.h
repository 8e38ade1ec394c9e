#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace binder {

/**
 * The UTF-16 units that the text takes; none when its last character is cut short. Other malformed
 * UTF-8 converts to whatever its bits make.
 */
std::optional<size_t> utf16Length(std::string_view text);

/** Writes utf16Length() units in host byte order, unaligned. There must be such a length. */
void toUtf16(std::string_view text, uint8_t* units);

/**
 * The bytes that length unaligned UTF-16 units take in UTF-8. A surrogate without its partner has
 * no place in UTF-8 and is left out.
 */
size_t utf8Length(const uint8_t* units, size_t length);

/** Writes utf8Length() bytes. */
void toUtf8(const uint8_t* units, size_t length, char* text);

}  // namespace binder
