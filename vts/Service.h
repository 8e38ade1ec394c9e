#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

#include "vts/Ask.h"

namespace vts {

namespace display = aidl::vendor::lumenforge::hardware::display;

using display::IVela;
using display::IVelaComposerClient;
using ndk::ScopedAStatus;
using ndk::SharedRefBase;
using vela::test::ask;
using vela::test::told;
using Values = std::vector<int32_t>;

/** Main object, composer client, instance. Without the service library no client can be made. */
using Service =
        std::tuple<std::shared_ptr<IVela>, std::shared_ptr<IVelaComposerClient>, std::string>;

/** Starts a thread pool for callbacks; without a main object if the instance is not published. */
Service connect(const std::string& instance, bool asCompositor = true);

/** The instances of the service that are declared; "default" where none is. */
std::vector<std::string> instances();

/** An instance and what is tested of it. In the end the service must be as ready as it was. */
class ServiceTest : public testing::TestWithParam<std::tuple<std::string, std::string>> {
  public:
    static std::string name(const testing::TestParamInfo<ParamType>& info);

  protected:
    void SetUp() override;
    void TearDown() override;

    const std::string& instance() const { return std::get<0>(GetParam()); }
    const std::string& subject() const { return std::get<1>(GetParam()); }
    IVela& vela() const { return *std::get<0>(service); }
    IVelaComposerClient& composer() const { return *std::get<1>(service); }
    /** The service library is. */
    bool isAbsent() const { return std::get<1>(service) == nullptr; }

    Service service;
};

}  // namespace vts
