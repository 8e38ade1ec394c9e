#pragma once

#include <string>
#include <vector>

namespace vela::test {

/**
 * Sees what code of the test program, the platform's inline functions included, asks of the system:
 * lines for syslog(), which it keeps to itself, and native handles deleted. One at a time, used by
 * one thread.
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
        int deleted = 0;
    };

    SystemSpy();
    ~SystemSpy();
    SystemSpy(const SystemSpy&) = delete;
    SystemSpy& operator=(const SystemSpy&) = delete;

    [[nodiscard]] const std::vector<Line>& syslogLines() const { return mSeen.lines; }
    [[nodiscard]] int handlesDeleted() const { return mSeen.deleted; }

  private:
    Seen mSeen;
};

}  // namespace vela::test
