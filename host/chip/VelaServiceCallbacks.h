#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "servicelib/VelaService.h"

namespace lmfg {

/**
 * The events of a service object, as the library raises them. Each function calls the registered
 * one on the caller's thread and waits for it; where none is registered it gives the answer named
 * here. Copies are cheap and refer to the same service object, which must outlive their use.
 */
class [[gnu::visibility("default")]] VelaServiceCallbacks {
  public:
    /** In the order in which the service object keeps them. */
    enum class Member {
        kFeatureChanged,
        kConfigChanged,
        kRefreshRequested,
        kPowerChanged,
        kContentSampling,
        kSoftSetConfig,
        kSoftGetConfig,
        kStringQuery,
    };

    explicit VelaServiceCallbacks(const VelaService& service) : mService(&service) {}

    [[nodiscard]] bool isSet(Member member) const;

    void featureChanged(int feature, const std::vector<int>& values) const;
    /** Nobody registered: empty. */
    std::vector<int> configChanged(int64_t display, int config, const std::vector<int>& values)
            const;
    void refreshRequested(int64_t display) const;
    void powerChanged(int64_t display, int mode) const;
    /** Nobody registered: `value1` is -1. */
    VelaContentSamples contentSampling(int64_t display, int arg2, int64_t arg3) const;
    /** Nobody registered: -1. */
    int softSetConfig(int64_t clientId, int config, const std::vector<int>& values) const;
    /** Nobody registered: empty, and `status` is -1. */
    std::vector<int> softGetConfig(int64_t clientId, int config, const std::vector<int>& values,
                                   int& status) const;
    /** Nobody registered: empty. */
    std::string stringQuery(int type, const std::string& request) const;

  private:
    /** Raises the event that `call` is, seen by the observers. */
    template <typename Call, typename... A>
    std::invoke_result_t<Call> raise(const char* name, Call call, const A&... arguments) const;

    const VelaService* mService;
};

}  // namespace lmfg
