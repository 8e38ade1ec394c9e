#include "fuzz/Served.h"

#include <syslog.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include <android/log.h>
#include <cutils/native_handle.h>

#include "fuzz/OpenDescriptors.h"
#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"

// The second close of a buffer request's descriptor fails, and tells so there.
extern "C" void syslog(int /*priority*/, const char* /*format*/, ...) {}

namespace fuzz {
namespace {

using lmfg::SimulatedChip;

class Chip : public SimulatedChip {
  public:
    /** Nobody frees the handles of buffer requests, which is deliberate: they would fill memory. */
    ~Chip() override {
        for (const native_handle_t* handle : mKept)
            native_handle_delete(const_cast<native_handle_t*>(handle));
    }

    Return<int32_t> velaConfigureSet(int type, const hidl_vec<int>& values) override {
        auto result = SimulatedChip::velaConfigureSet(type, values);
        settle();
        return result;
    }
    Return<void> velaConfigureBatch(int type, const hidl_string& request,
                                    StringResult result) override {
        (void)SimulatedChip::velaConfigureBatch(type, request, std::move(result));
        settle();
        return {};
    }
    int handleDisplayEvent(uint64_t display, int event, int value) override {
        const int result = SimulatedChip::handleDisplayEvent(display, event, value);
        settle();
        return result;
    }
    int velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                            uint32_t size) override {
        mKept.push_back(buffer.getNativeHandle());
        return SimulatedChip::velaConfigureBuffer(type, param, buffer, size);
    }

  private:
    std::vector<const native_handle_t*> mKept;
};

}  // namespace

Served::Served(bool hasChip) : mOpen(openDescriptors()) {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    lmfg::installChip(hasChip ? std::make_shared<Chip>() : nullptr);
    mService = ndk::SharedRefBase::make<display::VelaDefault>();
}

Served::~Served() {
    const std::weak_ptr<display::VelaDefault> weak = mService;
    mService.reset();
    lmfg::installChip(nullptr);
    if (!weak.expired() || openDescriptors() != mOpen) std::abort();
}

}  // namespace fuzz
