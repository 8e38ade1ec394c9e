#include "host/velactl/Report.h"

#include <iostream>
#include <mutex>
#include <string>

#include <android/binder_status.h>

namespace velactl {

void printLine(const Json& json) {
    static std::mutex lock;
    // The service may answer bytes that are no UTF-8; they must not cost the line.
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    const std::lock_guard guard(lock);
    std::cout << text << std::endl;
}

int fail(ExitCode code, const std::string& text) {
    std::cerr << "velactl: " + text + "\n" << std::flush;
    return code;
}

int failWithLine(ExitCode code, const std::string& kind, const std::string& text) {
    printLine({{"error", {{"kind", kind}, {"description", text}}}});
    return fail(code, text);
}

int reportStatus(const std::string& what, const ndk::ScopedAStatus& status) {
    std::string kind;
    int32_t code = 0;
    switch (status.getExceptionCode()) {
        case EX_SERVICE_SPECIFIC:
            kind = "service-specific";
            code = status.getServiceSpecificError();
            break;
        case EX_TRANSACTION_FAILED:
            kind = "transport";
            code = status.getStatus();
            break;
        default:
            kind = "exception";
            code = status.getExceptionCode();
    }
    const std::string description = status.getDescription();
    printLine({{"error", {{"kind", kind}, {"code", code}, {"description", description}}}});
    const bool dead = status.getStatus() == STATUS_DEAD_OBJECT;
    return fail(dead ? kNoService : kErrorStatus,
                what + ": " + kind + " error " + std::to_string(code) + ": " + description);
}

}  // namespace velactl
