#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "host/codec/Operation.h"
#include "host/velactl/Report.h"

namespace velactl {

/** One line of a recording, checked: its operation exists, its object appeared before. */
struct RecordedCall {
    enum class Kind { kRequest, kEvent, kGone };

    Kind kind = Kind::kRequest;
    size_t line = 0;  // in the file, from 1
    int64_t order = 0;
    int64_t client = 0;
    std::string target;  // "vela", "composer 1", "callback 2"
    std::string operation;
    const codec::Operation* definition = nullptr;  // null for a line "gone"
    std::vector<Json> arguments;
    Json status;
    Json answer;
    Json refused;  // why the chip refused it, one by one; null when it did not
};

/** What velahost --record wrote. */
struct Recording {
    std::string file;
    std::vector<std::string> text;    // the lines, for writing the file again
    std::vector<RecordedCall> calls;  // in the order in which they began
    bool tellsRefusals = false;
    bool cut = false;           // its host died: it ends with the last whole line
    int64_t end = 0;            // how many calls there were, unless it is cut
    std::vector<int64_t> open;  // those that had not ended
};

/** Reads a recording of that name. A failure names the line that is wrong. */
Failure parseRecording(std::istream& in, const std::string& file, Recording* out);
/** Reads the file, a recording; a failure names the line that is wrong. */
Failure readRecording(const std::string& file, Recording* out);

/** Writes the calls' statuses and answers into the file, which keeps its other lines. */
Failure writeRecording(const Recording& recording);

/** "composer 1" as its name and its number; 0 where it has none. */
std::string nameOf(const std::string& target);
int64_t numberOf(const std::string& target);
/** "composer 1" for {"composer": 1}; empty for what names no object. */
std::string objectIn(const Json& json);

}  // namespace velactl
