#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vela::test {

/**
 * Sees what code of the test program, the platform's inline functions included, asks of the system:
 * lines for syslog() and what is written to kFile, which it keeps to itself, and native handles
 * deleted. One at a time, used by one thread.
 */
class SystemSpy {
  public:
    struct Line {
        int priority;
        std::string text;

        friend bool operator==(const Line&, const Line&) = default;
    };
    struct Seen {
        std::vector<Line> lines;
        std::vector<std::string> writes;
        int deleted = 0;
    };

    /** No descriptor, but one that takes a byte of each write. */
    static constexpr int kFile = 1 << 30;

    SystemSpy();
    ~SystemSpy();
    SystemSpy(const SystemSpy&) = delete;
    SystemSpy& operator=(const SystemSpy&) = delete;

    [[nodiscard]] const std::vector<Line>& syslogLines() const { return mSeen.lines; }
    /** What was to be written to kFile since the last call, one element for each attempt. */
    [[nodiscard]] std::vector<std::string> takeWrites() { return std::exchange(mSeen.writes, {}); }
    [[nodiscard]] int handlesDeleted() const { return mSeen.deleted; }

  private:
    Seen mSeen;
};

}  // namespace vela::test
