#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace velactl {

/**
 * Asks for lines on a terminal, with a history and with the completion of commands, operations and
 * arguments, records as templates. Each line is kept for the next time. One thread.
 */
class Prompt {
  public:
    Prompt();
    /** None at the end of the input. Ctrl-C clears the line. `open`: how many blocks are open. */
    std::optional<std::string> readLine(size_t open);

  private:
    std::string mHistory;  // its file; empty for none
};

}  // namespace velactl
