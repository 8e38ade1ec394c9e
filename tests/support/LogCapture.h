#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android/log.h>

namespace vela::test {

struct LogLine {
    int priority;
    std::string text;

    friend bool operator==(const LogLine&, const LogLine&) = default;
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
        return out << line.priority << " \"" << line.text << '"';
    }
};

/** Collects the product's log lines while it lives; one at a time. */
class LogCapture {
  public:
    LogCapture() {
        take();
        // The host's library drops debug lines unless it is told otherwise.
        mPriority = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(&LogCapture::collect);
    }
    ~LogCapture() {
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(mPriority);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** The lines since the last call, in order. */
    std::vector<LogLine> take() {
        const std::lock_guard lock(sLock);
        return std::exchange(sLines, {});
    }

    /** Calls `action` once, while the writer of the next line is held. */
    static void onNextLine(std::function<void()> action) {
        const std::lock_guard lock(sLock);
        sOnNextLine = std::move(action);
    }

  private:
    static void collect(const __android_logger_data* data, const char* text) {
        if (data->tag == nullptr || std::string_view(data->tag) != "VELA_LOG_SERV") return;
        std::function<void()> action;
        {
            const std::lock_guard lock(sLock);
            sLines.push_back({data->priority, text});
            action = std::exchange(sOnNextLine, nullptr);
        }
        if (action) action();
    }

    int32_t mPriority;
    static inline std::mutex sLock;
    static inline std::vector<LogLine> sLines;
    static inline std::function<void()> sOnNextLine;
};

}  // namespace vela::test
