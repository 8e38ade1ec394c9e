#include "host/velahost/TraceWriter.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

TraceWriter::TraceWriter(const std::string& path) : mFile(path), mOpen(mFile.is_open()) {}

void TraceWriter::finish() {
    const std::lock_guard guard(mLock);
    if (!mFile.is_open()) return;
    // A trace without spans is an empty list all the same.
    mFile << (*mSeparator == '[' ? "[" : "") << "\n]\n";
    mFile.close();
}

void TraceWriter::write(const char* name, Clock::time_point start, Clock::time_point end) {
    using Microseconds = std::chrono::duration<double, std::micro>;
    const nlohmann::ordered_json event{
            {"name", name},
            {"cat", "chip"},
            {"ph", "X"},
            {"ts", Microseconds(start.time_since_epoch()).count()},
            {"dur", Microseconds(end - start).count()},
            {"pid", getpid()},
            {"tid", gettid()},
    };
    const std::string text = event.dump();
    const std::lock_guard guard(mLock);
    if (!mFile.is_open()) return;
    mFile << mSeparator << text << std::flush;
    mSeparator = ",\n";
}
