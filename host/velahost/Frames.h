#pragma once

#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>

/**
 * Writes frames to a folder as frame-000001.json and frame-000001.svg and so on, until one cannot
 * be written, which is told on stderr. Any thread.
 */
class Frames {
  public:
    /** The folder is there. */
    explicit Frames(std::string folder) : mFolder(std::move(folder)) {}

    void write(uint64_t number, const std::string& json, const std::string& svg);
    /** False when a frame could not be written. */
    bool isComplete();

  private:
    const std::string mFolder;
    std::mutex mLock;
    bool mFailed GUARDED_BY(mLock) = false;
};
