#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <hidl/HidlSupport.h>

namespace android::hardware {

/** How a call fared at the transport: ok, or a negative platform status code. */
class Status {
  public:
    Status() = default;
    static Status ok() { return {}; }
    static Status fromStatusT(int32_t status) {
        Status result;
        result.mStatus = status;
        return result;
    }

    bool isOk() const { return mStatus == 0; }
    int32_t transactionError() const { return mStatus; }
    std::string description() const {
        return isOk() ? "No error" : "Transport error " + std::to_string(mStatus);
    }

  private:
    int32_t mStatus = 0;
};

namespace details {

class return_status {
  public:
    return_status() = default;
    return_status(Status status) : mStatus(std::move(status)) {}

    bool isOk() const { return mStatus.isOk(); }
    std::string description() const { return mStatus.description(); }

  protected:
    void assertOk() const {
        if (!isOk()) logAlwaysFatal(("Value of a failed call read: " + description()).c_str());
    }

  private:
    Status mStatus;
};

}  // namespace details

/**
 * The result of a HIDL call: a value, or the transport's error. It may be dropped unexamined;
 * reading the value of a failed call aborts.
 */
template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}
    Return(Status status) : details::return_status(std::move(status)) {}

    operator T() const& {
        assertOk();
        return mValue;
    }
    operator T() && {
        assertOk();
        return std::move(mValue);
    }
    T withDefault(T value) const { return isOk() ? mValue : std::move(value); }

  private:
    T mValue{};
};

template <>
class Return<void> : public details::return_status {
  public:
    using details::return_status::return_status;
};

inline Return<void> Void() {
    return {};
}

}  // namespace android::hardware
