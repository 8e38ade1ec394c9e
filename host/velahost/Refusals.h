#pragma once

#include <sys/types.h>

#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>

/** Why the chip refuses requests: "EINVAL: display 9 is not there". Any thread. */
class Refusals {
  public:
    /** Forgets those of this thread: a request begins on it. */
    static void beginRequest();
    /** Those of this thread's request so far. */
    static const std::vector<std::string>& ofRequest();

    /** Notes one of this thread's request, whose caller is the process that is called by. */
    void add(const std::string& why);
    /** Those that this process met and has not taken yet, oldest first, of the last 64 of all. */
    std::vector<std::string> take(pid_t client);

  private:
    std::mutex mLock;
    std::deque<std::pair<pid_t, std::string>> mWaiting GUARDED_BY(mLock);
};
