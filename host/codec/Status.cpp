#include "host/codec/Status.h"

#include <android/binder_status.h>

namespace codec {
namespace {

constexpr const char* kServiceSpecific = "service-specific";
constexpr const char* kTransport = "transport";
constexpr const char* kException = "exception";

}  // namespace

Json statusToJson(const AStatus* status) {
    if (AStatus_isOk(status)) return "ok";
    const char* kind = kException;
    int32_t code = AStatus_getExceptionCode(status);
    if (code == EX_SERVICE_SPECIFIC) {
        kind = kServiceSpecific;
        code = AStatus_getServiceSpecificError(status);
    } else if (code == EX_TRANSACTION_FAILED) {
        kind = kTransport;
        code = AStatus_getStatus(status);
    }
    const char* const text = AStatus_getDescription(status);
    Json json{{"kind", kind}, {"code", code}, {"description", text}};
    AStatus_deleteDescription(text);
    return json;
}

bool statusFromJson(const Json& json, ndk::ScopedAStatus* out, std::string* error) {
    if (json == "ok") {
        *out = ndk::ScopedAStatus::ok();
        return true;
    }
    int32_t code = 0;
    if (!json.is_object() || !json.contains("kind") || !json.contains("code") ||
        !Codec<int32_t>::read(json["code"], &code, error)) {
        return refuse(error, R"(expected "ok" or {"kind", "code", ...})");
    }
    if (json["kind"] == kServiceSpecific) {
        *out = ndk::ScopedAStatus::fromServiceSpecificError(code);
    } else if (json["kind"] == kTransport) {
        *out = ndk::ScopedAStatus::fromStatus(code);
    } else if (json["kind"] == kException) {
        *out = ndk::ScopedAStatus::fromExceptionCode(code);
    } else {
        return refuse(error, "no such kind of status: " + json["kind"].dump());
    }
    return true;
}

}  // namespace codec
