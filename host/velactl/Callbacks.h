#pragma once

#include <functional>
#include <memory>
#include <string>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#include "host/codec/Codec.h"

namespace velactl {

/**
 * Answers a call of a callback: its operation and its arguments in declared order. Leaves the
 * answer in *answer where the operation has one. Runs on binder threads, several at a time.
 */
using CallbackHandler = std::function<ndk::ScopedAStatus(
        const std::string& operation, const codec::Json& arguments, codec::Json* answer)>;

/** A client's object of the callback interface of that short name, such as "IVelaCallback". */
std::shared_ptr<ndk::ICInterface> makeCallback(const std::string& type, CallbackHandler handler);

}  // namespace velactl
