#pragma once

#include <memory>
#include <string>

#include <binder_host/Observer.h>

#include "host/chip/ChipObserver.h"

/** Writes down what it sees. Any thread. */
class Writer {
  public:
    virtual ~Writer() = default;

    /**
     * Completes what was written; what is seen later is dropped. Empty, or why not all could be
     * written.
     */
    virtual std::string finish() = 0;
    /** Why something could not be written so far; empty for no reason. */
    virtual std::string error() = 0;
};

/** Sees the calls of clients and of their callbacks. Any thread. */
class CallTap {
  public:
    virtual ~CallTap() = default;

    /** As binder::CallObserver. */
    virtual std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                                       const AParcel* arguments) = 0;
};
