#include "host/chip/VelaServiceCallbacks.h"

#include <optional>
#include <utility>

#include "host/chip/Observed.h"

namespace lmfg {
namespace {

/** The result of a soft client's event where no function is registered for it. */
constexpr int kNobody = -1;

struct SoftAnswer {
    int status = kNobody;
    std::vector<int> values;
};

}  // namespace
}  // namespace lmfg

template <>
inline constexpr auto codec::kFields<lmfg::SoftAnswer> = std::tuple{
        Field{"status", &lmfg::SoftAnswer::status}, Field{"values", &lmfg::SoftAnswer::values}};

namespace lmfg {

bool VelaServiceCallbacks::isSet(Member member) const {
    switch (member) {
        case Member::kFeatureChanged:
            return mService->mFeatureChanged != nullptr;
        case Member::kConfigChanged:
            return mService->mConfigChanged != nullptr;
        case Member::kRefreshRequested:
            return mService->mRefreshRequested != nullptr;
        case Member::kPowerChanged:
            return mService->mPowerChanged != nullptr;
        case Member::kContentSampling:
            return mService->mContentSampling != nullptr;
        case Member::kSoftSetConfig:
            return mService->mSoftSetConfig != nullptr;
        case Member::kSoftGetConfig:
            return mService->mSoftGetConfig != nullptr;
        case Member::kStringQuery:
            return mService->mStringQuery != nullptr;
    }
    return false;
}

template <typename Call, typename... A>
std::invoke_result_t<Call> VelaServiceCallbacks::raise(const char* name, Call call,
                                                       const A&... arguments) const {
    const auto* const state = static_cast<const ServiceState*>(mService->mState);
    auto observers = state == nullptr ? nullptr : state->observers->get();
    if (observers == nullptr) return call();
    ObservedCall observed(std::move(observers), {.isEvent = true,
                                                 .operation = name,
                                                 .arguments = argumentsOf(arguments...),
                                                 .cause = CausedBy::current()});
    if constexpr (std::is_void_v<std::invoke_result_t<Call>>) {
        call();
    } else {
        auto answer = call();
        observed.answered(answer);
        return answer;
    }
}

// Each event works on a copy of the function, so that one which registers anew from within itself
// stays alive until it has returned.

void VelaServiceCallbacks::featureChanged(int feature, const std::vector<int>& values) const {
    const auto call = [&, callback = mService->mFeatureChanged] {
        if (callback) callback(feature, values);
    };
    raise("featureChanged", call, feature, values);
}

std::vector<int> VelaServiceCallbacks::configChanged(int64_t display, int config,
                                                     const std::vector<int>& values) const {
    const auto call = [&, callback = mService->mConfigChanged] {
        return callback ? callback(display, config, values) : std::vector<int>();
    };
    return raise("configChanged", call, display, config, values);
}

void VelaServiceCallbacks::refreshRequested(int64_t display) const {
    const auto call = [&, callback = mService->mRefreshRequested] {
        if (callback) callback(display);
    };
    raise("refreshRequested", call, display);
}

void VelaServiceCallbacks::powerChanged(int64_t display, int mode) const {
    const auto call = [&, callback = mService->mPowerChanged] {
        if (callback) callback(display, mode);
    };
    raise("powerChanged", call, display, mode);
}

VelaContentSamples VelaServiceCallbacks::contentSampling(int64_t display, int arg2,
                                                         int64_t arg3) const {
    const auto call = [&, callback = mService->mContentSampling] {
        return callback ? callback(display, arg2, arg3) : VelaContentSamples();
    };
    return raise("contentSampling", call, display, arg2, arg3);
}

int VelaServiceCallbacks::softSetConfig(int64_t clientId, int config,
                                        const std::vector<int>& values) const {
    const auto call = [&, callback = mService->mSoftSetConfig] {
        return callback ? callback(clientId, config, values) : kNobody;
    };
    return raise("softSetConfig", call, clientId, config, values);
}

std::vector<int> VelaServiceCallbacks::softGetConfig(int64_t clientId, int config,
                                                     const std::vector<int>& values,
                                                     int& status) const {
    const auto call = [&, callback = mService->mSoftGetConfig] {
        SoftAnswer answer;
        if (callback) answer.values = callback(clientId, config, values, answer.status);
        return answer;
    };
    SoftAnswer answer = raise("softGetConfig", call, clientId, config, values);
    status = answer.status;
    return std::move(answer.values);
}

std::string VelaServiceCallbacks::stringQuery(int type, const std::string& request) const {
    const auto call = [&, callback = mService->mStringQuery] {
        return callback ? callback(type, request) : std::string();
    };
    return raise("stringQuery", call, type, request);
}

}  // namespace lmfg
