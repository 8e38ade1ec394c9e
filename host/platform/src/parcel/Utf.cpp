#include "parcel/Utf.h"

#include <cstring>

namespace binder {
namespace {

constexpr uint32_t kHighSurrogates = 0xd800;
constexpr uint32_t kLowSurrogates = 0xdc00;
constexpr uint32_t kSurrogateMask = 0xfc00;
constexpr uint32_t kFirstSupplementary = 0x10000;

/**
 * Calls take(codePoint) for each character of the text. How many bytes belong to one its first byte
 * tells; one that can lead none stands for itself. False when the last one is cut short.
 */
template <typename Take>
bool decodeUtf8(std::string_view text, Take take) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
        if (length > text.size() - i) return false;
        uint32_t codePoint = length == 1 ? lead : lead & (0x7fu >> length);
        for (const size_t end = i++ + length; i < end; ++i) {
            codePoint = codePoint << 6 | (static_cast<uint8_t>(text[i]) & 0x3fu);
        }
        take(codePoint);
    }
    return true;
}

uint32_t unitAt(const uint8_t* units, size_t index) {
    uint16_t unit;
    memcpy(&unit, units + 2 * index, sizeof(unit));
    return unit;
}

void putUnit(uint8_t* units, size_t index, uint32_t value) {
    const auto unit = static_cast<uint16_t>(value);
    memcpy(units + 2 * index, &unit, sizeof(unit));
}

/** Calls take(codePoint) for each code point of the units. */
template <typename Take>
void decodeUtf16(const uint8_t* units, size_t length, Take take) {
    for (size_t i = 0; i < length; ++i) {
        const uint32_t unit = unitAt(units, i);
        const uint32_t kind = unit & kSurrogateMask;
        if (kind == kHighSurrogates && i + 1 < length &&
            (unitAt(units, i + 1) & kSurrogateMask) == kLowSurrogates) {
            const uint32_t low = unitAt(units, ++i) - kLowSurrogates;
            take(kFirstSupplementary + ((unit - kHighSurrogates) << 10) + low);
        } else if (kind != kHighSurrogates && kind != kLowSurrogates) {
            take(unit);
        }
    }
}

size_t utf8LengthOf(uint32_t codePoint) {
    if (codePoint < 0x80) return 1;
    if (codePoint < 0x800) return 2;
    return codePoint < kFirstSupplementary ? 3 : 4;
}

}  // namespace

std::optional<size_t> utf16Length(std::string_view text) {
    size_t units = 0;
    const bool whole = decodeUtf8(
            text, [&](uint32_t codePoint) { units += codePoint >= kFirstSupplementary ? 2 : 1; });
    return whole ? std::optional(units) : std::nullopt;
}

void toUtf16(std::string_view text, uint8_t* units) {
    size_t count = 0;
    decodeUtf8(text, [&](uint32_t codePoint) {
        if (codePoint >= kFirstSupplementary) {
            const uint32_t offset = codePoint - kFirstSupplementary;
            putUnit(units, count++, kHighSurrogates + (offset >> 10));
            codePoint = kLowSurrogates + (offset & 0x3ff);
        }
        putUnit(units, count++, codePoint);
    });
}

size_t utf8Length(const uint8_t* units, size_t length) {
    size_t bytes = 0;
    decodeUtf16(units, length, [&](uint32_t codePoint) { bytes += utf8LengthOf(codePoint); });
    return bytes;
}

void toUtf8(const uint8_t* units, size_t length, char* text) {
    decodeUtf16(units, length, [&](uint32_t codePoint) {
        const size_t bytes = utf8LengthOf(codePoint);
        if (bytes == 1) {
            *text++ = static_cast<char>(codePoint);
            return;
        }
        for (size_t i = bytes; i-- > 1; codePoint >>= 6) {
            text[i] = static_cast<char>(0x80 | (codePoint & 0x3f));
        }
        text[0] = static_cast<char>((0xf00u >> bytes & 0xff) | codePoint);
        text += bytes;
    });
}

}  // namespace binder
