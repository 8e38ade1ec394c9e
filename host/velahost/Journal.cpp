#include "host/velahost/Journal.h"

#include <algorithm>
#include <utility>

using lmfg::ChipCall;

Journal::Journal(const FileOptions& options) : mFile("journal", options), mTimes(options.times) {
    const std::lock_guard guard(mLock);
    (void)mFile.begin("");
}

Journal::Entry* Journal::find(const ChipCall* call) {
    const auto found = std::find_if(mEntries.begin(), mEntries.end(), [call](const Entry& entry) {
        return entry.call == call && !entry.settled;
    });
    return found == mEntries.end() ? nullptr : &*found;
}

Journal::Entry* Journal::entryOf(const ChipCall& call) {
    Entry* const caused = call.cause == nullptr ? nullptr : find(call.cause.get());
    return caused == nullptr ? find(&call) : caused;
}

void Journal::began(const ChipCall& call) {
    const std::lock_guard guard(mLock);
    // The cause may have begun before this journal.
    if (entryOf(call) == nullptr) mEntries.push_back({.call = &call, .lines = {}});
    mOpen.push_back({&call, Clock::now()});
}

void Journal::ended(const ChipCall& call, const codec::Json& answer) {
    const std::lock_guard guard(mLock);
    const auto open = std::find_if(mOpen.begin(), mOpen.end(),
                                   [&call](const Open& it) { return it.call == &call; });
    codec::Json line;
    if (mTimes) {
        using std::chrono::duration_cast;
        using std::chrono::microseconds;
        line["time"] = duration_cast<microseconds>(open->since - mStart).count();
        line["took"] = duration_cast<microseconds>(Clock::now() - open->since).count();
    }
    mOpen.erase(open);
    line[call.isEvent ? "event" : "call"] = call.operation;
    line["arguments"] = call.arguments;
    line["answer"] = answer;
    Entry* const entry = entryOf(call);
    if (entry == nullptr) return;
    // A request comes before its events, though they may be over before it.
    entry->lines.insert(entry->call == &call ? entry->lines.begin() : entry->lines.end(),
                        std::move(line));
}

void Journal::settled(const ChipCall& call) {
    const std::lock_guard guard(mLock);
    if (Entry* const entry = find(&call); entry != nullptr) entry->settled = true;
    writeSettled();
}

void Journal::writeSettled() {
    while (!mEntries.empty() && mEntries.front().settled) {
        if (mFile.fills() > 0) (void)mFile.begin("");
        for (const codec::Json& line : mEntries.front().lines)
            (void)mFile.write(textOf(line) + "\n");
        mEntries.pop_front();
    }
}

std::string Journal::finish() {
    const std::lock_guard guard(mLock);
    for (Entry& entry : mEntries)
        entry.settled = true;
    writeSettled();
    mFile.close();
    return mFile.error();
}

std::string Journal::error() {
    const std::lock_guard guard(mLock);
    return mFile.error();
}
