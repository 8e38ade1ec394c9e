#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lmfg {

enum class Verb {
    kSet,
    kGet,
    kFeature,
    kRefresh,
    kPower,
    kConfig,
    kSample,
    kSoftSet,
    kSoftGet,
    kQuery,
    kOsd,
    kWait,
    kLast,
    kEvents,
    kClear,
};

struct BatchCommand {
    Verb verb;
    std::string name;
    size_t line = 0;
    /** The fixed arguments, each already within the range of its type. */
    std::vector<int64_t> numbers;
    /** The list at the end of commands that take one. */
    std::vector<int> values;
    /** The rest of the line, for the command that takes text. */
    std::string text;
};

struct BatchParse {
    std::vector<BatchCommand> commands;
    /** Empty, or what is wrong, beginning with the line: "line 2: usage: ...". */
    std::string error;
};

/** Commands are separated by line ends or ';'; '#' begins a comment up to the line's end. */
BatchParse parseBatch(std::string_view text);

}  // namespace lmfg
