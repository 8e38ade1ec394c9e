#pragma once

#include <chrono>
#include <fstream>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>

/**
 * Writes spans as a JSON trace of the Chrome trace event format, which Perfetto and
 * chrome://tracing read. Spans may end on any thread. Each is flushed as it ends, so that the file
 * is readable while the host runs and after it was killed: readers do not insist on the bracket at
 * its end.
 */
class TraceWriter {
  public:
    using Clock = std::chrono::steady_clock;

    /** Truncates or makes the file; isOpen() says whether that worked. */
    explicit TraceWriter(const std::string& path);

    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    [[nodiscard]] bool isOpen() const { return mOpen; }

    /** Completes the file. Spans that end later are dropped. */
    void finish();

    /** A call from construction to destruction, on the thread that runs it. */
    class Span {
      public:
        /** The name is not copied and must outlive the span. */
        Span(TraceWriter* writer, const char* name)
            : mWriter(writer), mName(name), mStart(Clock::now()) {}
        ~Span() { mWriter->write(mName, mStart, Clock::now()); }

        Span(const Span&) = delete;
        Span& operator=(const Span&) = delete;

      private:
        TraceWriter* const mWriter;
        const char* const mName;
        const Clock::time_point mStart;
    };

  private:
    void write(const char* name, Clock::time_point start, Clock::time_point end);

    std::mutex mLock;
    std::ofstream mFile GUARDED_BY(mLock);
    const char* mSeparator GUARDED_BY(mLock) = "[\n";
    const bool mOpen;
};
