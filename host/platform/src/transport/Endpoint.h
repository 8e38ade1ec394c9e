#pragma once

#include <memory>
#include <string>

#include <sys/socket.h>

#include <android-base/unique_fd.h>
#include <android/binder_status.h>

#include "transport/RuntimeFolder.h"

namespace binder {

/** The process as others see it: a listening socket in the runtime folder, named after it. */
class Endpoint {
  public:
    /** Null, logged, when it cannot be made. The socket goes when the process ends. */
    static std::unique_ptr<Endpoint> create();

    const std::string& name() const { return mName; }
    const RuntimeFolder& folder() const { return mFolder; }
    int listener() const { return mListener.get(); }

    /**
     * A socket connected to the endpoint of that name, and whose that is. Below zero with *status
     * set when there is none: STATUS_DEAD_OBJECT when nobody listens there any more, else
     * STATUS_FAILED_TRANSACTION. Does not wait.
     */
    android::base::unique_fd connect(const std::string& name, ucred* credentials,
                                     binder_status_t* status) const;

  private:
    Endpoint(const RuntimeFolder& folder, std::string name, android::base::unique_fd listener);

    const RuntimeFolder& mFolder;
    const std::string mName;
    const android::base::unique_fd mListener;
};

}  // namespace binder
