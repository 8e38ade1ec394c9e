#pragma once

#include <cstdint>
#include <string>

#include "host/codec/Codec.h"

/** Takes a text at a time. Not thread-safe. */
class Output {
  public:
    virtual ~Output() = default;

    /** Hands the text to the system at once, so that a crash loses nothing; false once it fails. */
    virtual bool write(const std::string& text) = 0;

    /** Begins the first or the next part with that text; false when it cannot be written. */
    virtual bool begin(const std::string& head) = 0;
    /** How often the part has reached its limit: from 1 on, a next one is due. */
    [[nodiscard]] virtual uint64_t fills() const { return 0; }

    /** Nothing is written any more. */
    virtual void close() = 0;

    /** Why something could not be written; empty for no reason. */
    [[nodiscard]] virtual const std::string& error() const = 0;
};

/** The line without its end. Bytes that are no UTF-8 do not cost it. */
inline std::string textOf(const codec::Json& json) {
    return json.dump(-1, ' ', false, codec::Json::error_handler_t::replace);
}
