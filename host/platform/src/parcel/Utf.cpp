#include "parcel/Utf.h"

#include <cstring>

namespace binder {
namespace {

constexpr uint32_t kHighSurrogates = 0xd800;
constexpr uint32_t kLowSurrogates = 0xdc00;
constexpr uint32_t kSurrogateMask = 0xfc00;
constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10ffff;

/** The code point at text[0] and its length in bytes, which is 0 for invalid UTF-8. */
struct Decoded {
    uint32_t codePoint;
    size_t length;
};

Decoded decodeUtf8(std::string_view text) {
    const auto byte = [&](size_t index) { return static_cast<uint8_t>(text[index]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc0 || lead >= 0xf8 || text.size() < length) return {0, 0};
    uint32_t codePoint = lead & (0x7fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return {0, 0};
        codePoint = codePoint << 6 | (byte(i) & 0x3fu);
    }
    constexpr uint32_t kLowest[] = {0, 0, 0x80, 0x800, kFirstSupplementary};
    const bool surrogate = codePoint >= kHighSurrogates && codePoint < 0xe000;
    if (codePoint < kLowest[length] || codePoint > kLastCodePoint || surrogate) return {0, 0};
    return {codePoint, length};
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
    while (!text.empty()) {
        const Decoded decoded = decodeUtf8(text);
        if (decoded.length == 0) return std::nullopt;
        units += decoded.codePoint >= kFirstSupplementary ? 2 : 1;
        text.remove_prefix(decoded.length);
    }
    return units;
}

void toUtf16(std::string_view text, uint8_t* units) {
    size_t count = 0;
    while (!text.empty()) {
        const auto [codePoint, length] = decodeUtf8(text);
        if (codePoint >= kFirstSupplementary) {
            const uint32_t offset = codePoint - kFirstSupplementary;
            putUnit(units, count++, kHighSurrogates + (offset >> 10));
            putUnit(units, count++, kLowSurrogates + (offset & 0x3ff));
        } else {
            putUnit(units, count++, codePoint);
        }
        text.remove_prefix(length);
    }
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
