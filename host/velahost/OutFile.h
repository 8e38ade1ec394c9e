#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <string>
#include <utility>

#include "host/velahost/Output.h"

/** What a file is to be. */
struct FileOptions {
    std::string path;
    uint64_t limit = 0;  // bytes after which a next part begins; 0: never
    bool times = false;  // of a journal
};

/**
 * A file, or, with a limit, numbered ones: the parts of "run.jsonl" are "run-000001.jsonl" and so
 * on. Its first failure is told on stderr, unless it happens in the first begin(), and ends it; a
 * line that was not written whole is taken back, and an empty file that was made is removed.
 */
class OutFile : public Output {
  public:
    /** Opens nothing yet. `what` it is, for messages. */
    OutFile(std::string what, FileOptions options)
        : mWhat(std::move(what)), mOptions(std::move(options)) {}

    bool write(const std::string& text) override;
    bool begin(const std::string& head) override;
    [[nodiscard]] uint64_t fills() const override;
    void close() override { mFile.reset(); }
    [[nodiscard]] const std::string& error() const override { return mError; }

    /** The file of that part, from 1. */
    static std::string partPath(const FileOptions& options, uint32_t part);

  private:
    bool append(const std::string& text);
    /** Ends it, for the reason in errno. */
    void fail();

    const std::string mWhat;
    const FileOptions mOptions;
    uint32_t mPart = 0;
    std::string mPath;  // of the part
    android::base::unique_fd mFile;
    bool mMade = false;  // did not exist before
    uint64_t mSize = 0;
    std::string mError;
};
