#include <cstddef>
#include <cstdint>
#include <memory>

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/log.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "service/VelaDefault.h"

// Arbitrary parcels to every operation of both stubs: the first byte chooses the object, the second
// the operation, the rest is the parcel behind a correct interface token. A bad parcel is refused
// with a status; it never harms the process.

namespace {

namespace display = aidl::vendor::lumenforge::hardware::display;

/** More than either interface has, so that unknown codes come, too. */
constexpr uint32_t kCodes = 48;

struct Targets {
    Targets() {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
        lmfg::installChip(std::make_shared<lmfg::SimulatedChip>());
        service = ndk::SharedRefBase::make<display::VelaDefault>();
        std::shared_ptr<display::IVelaComposerClient> client;
        if (!service->createComposerClient(&client).isOk()) __builtin_trap();
        binders[0] = service->asBinder();
        binders[1] = client->asBinder();
    }

    std::shared_ptr<display::VelaDefault> service;
    ndk::SpAIBinder binders[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Never destroyed: the objects outlive the fuzzer's own end.
    static const Targets& targets = *new Targets;
    if (size < 2) return 0;
    AIBinder* const binder = targets.binders[data[0] & 1].get();
    const transaction_code_t code = FIRST_CALL_TRANSACTION + data[1] % kCodes;

    const ndk::ScopedAParcel bytes(AParcel_create());
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    if (AParcel_unmarshal(bytes.get(), data + 2, size - 2) != STATUS_OK ||
        AIBinder_prepareTransaction(binder, in.getR()) != STATUS_OK ||
        AParcel_appendFrom(bytes.get(), in.get(), 0, AParcel_getDataSize(bytes.get())) !=
                STATUS_OK) {
        __builtin_trap();
    }
    (void)AIBinder_transact(binder, code, in.getR(), out.getR(), 0);
    return 0;
}
