#pragma once

#include <string>
#include <vector>

namespace vela::test {

/**
 * Sees what code of the test program, the platform's inline functions included, asks of the system:
 * lines for syslog(), which it keeps to itself, and native handles made and deleted. One at a time,
 * used by one thread.
 */
class SystemSpy {
  public:
    SystemSpy();
    ~SystemSpy();
    SystemSpy(const SystemSpy&) = delete;
    SystemSpy& operator=(const SystemSpy&) = delete;

    struct Line {
        int priority;
        std::string text;

        friend bool operator==(const Line&, const Line&) = default;
    };

    [[nodiscard]] const std::vector<Line>& syslogLines() const { return mLines; }
    [[nodiscard]] int handlesMade() const { return mMade; }
    [[nodiscard]] int handlesDeleted() const { return mDeleted; }

  private:
    friend struct SystemSpyHooks;

    std::vector<Line> mLines;
    int mMade = 0;
    int mDeleted = 0;
};

}  // namespace vela::test
