#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/Served.h"
#include "host/velactl/Callbacks.h"

// A sequence of calls of both stubs and of clients' objects. The first byte tells whether there is
// a chip; each call is a target, a code, and the pieces of its parcel up to a zero: 1 to 199 is a
// piece of so many bytes, what follows are descriptors and binders, those that answers brought
// among them. A bad parcel is refused with a status; it never harms the process.

namespace {

using codec::Json;

constexpr uint8_t kFirstDescriptor = 200;
constexpr uint8_t kFirstBinder = 210;
/** More than either interface has, so that unknown codes come, too. */
constexpr uint32_t kCodes = 48;
constexpr uint8_t kNoToken = 253;
constexpr uint8_t kDump = 254;
constexpr uint8_t kAnyCode = 255;
constexpr size_t kMostBinders = 16;
/** Where a binder may stand in an answer: behind the status, in what is left of small ones. */
constexpr int32_t kSearched = 64;

/** What a client answers to an event: what it was asked with, or a refusal. */
ndk::ScopedAStatus answer(const std::string& operation, const Json& arguments, Json* out) {
    if (arguments[0] == 13) return ndk::ScopedAStatus::fromServiceSpecificError(-13);
    *out = operation == "onContentSamplingRequested" ? Json{{"value1", 1}, {"list2", {2, 3}}}
           : operation == "setConfig"                ? arguments[1]
                                                     : arguments.back();
    return ndk::ScopedAStatus::ok();
}

/** Objects of clients, and one of no interface of ours. They have no state. */
std::vector<ndk::SpAIBinder> clientBinders() {
    std::vector<ndk::SpAIBinder> binders;
    for (const char* type : {"IVelaCallback", "ISoftVelaClient", "IVelaComposerCallback"})
        binders.push_back(velactl::makeCallback(type, answer)->asBinder());
    const AIBinder_Class* const clazz = AIBinder_Class_define(
            "fuzz.IOther", [](void* data) { return data; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    binders.emplace_back(AIBinder_new(clazz, nullptr));
    binders.emplace_back();
    return binders;
}

using Files = std::array<int, 5>;

/** What descriptors in parcels refer to; the last is none. */
Files openFiles() {
    const int file = memfd_create("fuzz", MFD_CLOEXEC);
    std::array<int, 2> pipe{};
    if (ftruncate(file, 4096) != 0 || pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) abort();
    return {file, open("/dev/null", O_RDWR | O_CLOEXEC), pipe[0], pipe[1], -1};
}

const Files& files() {
    static const Files files = openFiles();
    return files;
}

class Calls {
  public:
    explicit Calls(FuzzedDataProvider* input)
        : mFiles(files()),
          mInput(*input),
          mServed((take() & 1) == 0),
          mBinders{mServed.service()->asBinder()} {
        static const auto& clients = *new auto(clientBinders());
        mBinders.insert(mBinders.end(), clients.begin(), clients.end());
    }

    void run() {
        while (mInput.remaining_bytes() > 0) {
            AIBinder* const target = mBinders[take() % mBinders.size()].get();
            call(target, take());
        }
    }

  private:
    uint8_t take() {
        uint8_t byte = 0;
        mInput.ConsumeData(&byte, sizeof(byte));
        return byte;
    }

    void call(AIBinder* target, uint8_t code) {
        ndk::ScopedAParcel in;
        ndk::ScopedAParcel out;
        if (code == kDump && target != nullptr) (void)AIBinder_dump(target, mFiles[1], nullptr, 0);
        if (AIBinder_prepareTransaction(target, in.getR()) != STATUS_OK) return;
        transaction_code_t number = FIRST_CALL_TRANSACTION + code % kCodes;
        if (code == kNoToken) (void)AParcel_reset(in.get());
        if (code == kAnyCode) mInput.ConsumeData(&number, sizeof(number));
        while (const uint8_t piece = take()) {
            if (piece >= kFirstBinder) {
                const auto& binder = mBinders[(piece - kFirstBinder) % mBinders.size()];
                (void)AParcel_writeStrongBinder(in.get(), binder.get());
            } else if (piece >= kFirstDescriptor) {
                (void)AParcel_writeParcelFileDescriptor(
                        in.get(), mFiles[(piece - kFirstDescriptor) % mFiles.size()]);
            } else {
                const auto bytes = mInput.ConsumeBytes<uint8_t>(piece);
                const ndk::ScopedAParcel some(AParcel_create());
                (void)AParcel_unmarshal(some.get(), bytes.data(), bytes.size());
                (void)AParcel_appendFrom(some.get(), in.get(), 0,
                                         static_cast<int32_t>(bytes.size()));
            }
        }
        const binder_flags_t flags = code == kAnyCode && number % 2 == 0 ? FLAG_ONEWAY : 0;
        if (AIBinder_transact(target, number, in.getR(), out.getR(), flags) != STATUS_OK) return;
        const int32_t end = std::min(AParcel_getDataSize(out.get()), kSearched);
        for (int32_t at = 0; at < end && mBinders.size() < kMostBinders; at += 4) {
            ndk::SpAIBinder found;
            (void)AParcel_setDataPosition(out.get(), at);
            if (AParcel_readStrongBinder(out.get(), found.getR()) == STATUS_OK &&
                found.get() != nullptr) {
                mBinders.push_back(found);
            }
        }
    }

    const Files& mFiles;
    FuzzedDataProvider& mInput;
    fuzz::Served mServed;
    std::vector<ndk::SpAIBinder> mBinders;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    Calls(&input).run();
    return 0;
}
