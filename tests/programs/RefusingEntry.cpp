#include <cstdint>

/** A library whose service can never be published. */
extern "C" [[gnu::visibility("default")]] int32_t AIDL_REGISTER_IVela() {
    return 1;
}
