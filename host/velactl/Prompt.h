#pragma once

#include <optional>
#include <string>

namespace velactl {

/**
 * Asks for lines on a terminal, with a history and with the completion of commands, operations and
 * arguments, records as templates. One thread.
 */
class Prompt {
  public:
    Prompt();
    /** Keeps the history for the next time. */
    ~Prompt();
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    /** None at the end of the input. */
    std::optional<std::string> readLine();

  private:
    std::string mHistory;  // its file; empty for none
};

}  // namespace velactl
