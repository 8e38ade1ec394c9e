#pragma once

#include <fstream>
#include <string>

#include "host/codec/Codec.h"

/**
 * A file of JSON lines. Each line is handed to the system as it is written, so that a crash loses
 * none. Not thread-safe.
 */
class LineFile {
  public:
    /** Truncates or makes the file; isOpen() says whether that worked. */
    explicit LineFile(const std::string& path) : mFile(path) {}

    [[nodiscard]] bool isOpen() const { return mFile.is_open(); }

    void write(const codec::Json& line) {
        // Bytes that are no UTF-8 must not cost the line.
        mFile << line.dump(-1, ' ', false, codec::Json::error_handler_t::replace) + "\n"
              << std::flush;
    }

    /** Completes the file; false when some of it could not be written. */
    bool close() {
        mFile.close();
        return !mFile.fail();
    }

  private:
    std::ofstream mFile;
};
