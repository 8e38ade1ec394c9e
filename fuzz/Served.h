#pragma once

#include <cstddef>
#include <memory>

#include <android/binder_auto_utils.h>

#include "service/VelaDefault.h"

namespace fuzz {

namespace display = aidl::vendor::lumenforge::hardware::display;

/**
 * The product above a simulated chip, both new for each input. Events have been answered when the
 * request that raises them returns, so that one input always takes the same road. At its end
 * everything is given back, or the process aborts: the service object, descriptors, kept handles.
 */
class Served {
  public:
    explicit Served(bool hasChip);
    ~Served();
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

    [[nodiscard]] const std::shared_ptr<display::VelaDefault>& service() const { return mService; }

  private:
    const std::ptrdiff_t mOpen;
    std::shared_ptr<display::VelaDefault> mService;
};

}  // namespace fuzz
