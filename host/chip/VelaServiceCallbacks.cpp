#include "host/chip/VelaServiceCallbacks.h"

namespace lmfg {

// Each call works on a copy, so that a function which registers anew from within itself stays alive
// until it has returned.

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

void VelaServiceCallbacks::featureChanged(int feature, const std::vector<int>& values) const {
    if (const auto callback = mService->mFeatureChanged) callback(feature, values);
}

std::vector<int> VelaServiceCallbacks::configChanged(int64_t display, int config,
                                                     const std::vector<int>& values) const {
    const auto callback = mService->mConfigChanged;
    return callback ? callback(display, config, values) : std::vector<int>();
}

void VelaServiceCallbacks::refreshRequested(int64_t display) const {
    if (const auto callback = mService->mRefreshRequested) callback(display);
}

void VelaServiceCallbacks::powerChanged(int64_t display, int mode) const {
    if (const auto callback = mService->mPowerChanged) callback(display, mode);
}

VelaContentSamples VelaServiceCallbacks::contentSampling(int64_t display, int arg2,
                                                         int64_t arg3) const {
    const auto callback = mService->mContentSampling;
    return callback ? callback(display, arg2, arg3) : VelaContentSamples();
}

int VelaServiceCallbacks::softSetConfig(int64_t clientId, int config,
                                        const std::vector<int>& values) const {
    const auto callback = mService->mSoftSetConfig;
    return callback ? callback(clientId, config, values) : -1;
}

std::vector<int> VelaServiceCallbacks::softGetConfig(int64_t clientId, int config,
                                                     const std::vector<int>& values,
                                                     int& status) const {
    status = -1;
    const auto callback = mService->mSoftGetConfig;
    return callback ? callback(clientId, config, values, status) : std::vector<int>();
}

std::string VelaServiceCallbacks::stringQuery(int type, const std::string& request) const {
    const auto callback = mService->mStringQuery;
    return callback ? callback(type, request) : std::string();
}

}  // namespace lmfg
