#pragma once

#include <string>

#include <android-base/unique_fd.h>

namespace binder {

/**
 * The folder in which the processes of one user find each other: `$BINDER_RUNTIME_DIR`, else
 * `$XDG_RUNTIME_DIR/binder`, else `/tmp/binder-<uid>`. Chosen once for the life of the process.
 */
class RuntimeFolder {
  public:
    /**
     * Null, logged, when the folder cannot be made or other users could meddle with it, and, with
     * errno EMFILE, while the process has no descriptor for it.
     */
    static const RuntimeFolder* get();

    const std::string& path() const { return mPath; }
    int fd() const { return mFd.get(); }
    /** A path of the entry that fits a socket address however long the folder's own path is. */
    std::string shortPath(const std::string& entry) const;

    /** Removes the endpoints of processes that are gone. */
    void sweep() const;

  private:
    RuntimeFolder(std::string path, android::base::unique_fd fd);

    static const RuntimeFolder* open();

    const std::string mPath;
    const android::base::unique_fd mFd;
};

}  // namespace binder
