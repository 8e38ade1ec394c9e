#pragma once

#include <memory>
#include <string>

#include "service/VelaDefault.h"
#include "tests/support/ChipTest.h"

namespace aidl::vendor::lumenforge::hardware::display {

using vela::test::ask;
using vela::test::told;
using vts::Values;

/** A main service on a chip that the test sees, and one that found no library. */
class ServiceTest : public vela::test::ChipTest {
  protected:
    ServiceTest() {
        lmfg::installChip(nullptr);
        mDegraded = ndk::SharedRefBase::make<VelaDefault>();
        lmfg::installChip(mChip, {mSpy});
        mService = ndk::SharedRefBase::make<VelaDefault>();
    }

    std::shared_ptr<VelaDefault> mDegraded;
    std::shared_ptr<VelaDefault> mService;
};

}  // namespace aidl::vendor::lumenforge::hardware::display
