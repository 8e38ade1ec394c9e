#pragma once

#include <cstdint>

namespace binder {

/** Takes what the functions of android/trace.h mark, on the thread that does. */
class [[gnu::visibility("default")]] TraceSink {
  public:
    virtual ~TraceSink() = default;
    virtual void beginSection(const char* name) = 0;
    virtual void endSection() = 0;
    virtual void beginAsyncSection(const char* name, int32_t cookie) = 0;
    virtual void endAsyncSection(const char* name, int32_t cookie) = 0;
    virtual void setCounter(const char* name, int64_t value) = 0;
};

/** Null, which it is at first: nobody takes a trace. A sink lives until the process ends. */
[[gnu::visibility("default")]] void setTraceSink(TraceSink* sink);

}  // namespace binder
