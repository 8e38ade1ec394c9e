#include "tests/support/SystemSpy.h"

#include <cutils/native_handle.h>
#include <dlfcn.h>
#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vela::test {
namespace {

SystemSpy* gSpy = nullptr;

}  // namespace

struct SystemSpyHooks {
    static void logged(int priority, const char* text) {
        if (gSpy != nullptr) gSpy->mLines.push_back({priority, text});
    }
    static void made() {
        if (gSpy != nullptr) ++gSpy->mMade;
    }
    static void deleted() {
        if (gSpy != nullptr) ++gSpy->mDeleted;
    }
};

SystemSpy::SystemSpy() {
    gSpy = this;
}

SystemSpy::~SystemSpy() {
    gSpy = nullptr;
}

}  // namespace vela::test

// The test program's own definitions of these functions come before the libraries'.

void syslog(int priority, const char* format, ...) {
    std::array<char, 512> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    vela::test::SystemSpyHooks::logged(priority, text.data());
}

native_handle_t* native_handle_create(int numFds, int numInts) {
    vela::test::SystemSpyHooks::made();
    return reinterpret_cast<decltype(&native_handle_create)>(
            dlsym(RTLD_NEXT, "native_handle_create"))(numFds, numInts);
}

int native_handle_delete(native_handle_t* handle) {
    vela::test::SystemSpyHooks::deleted();
    return reinterpret_cast<decltype(&native_handle_delete)>(
            dlsym(RTLD_NEXT, "native_handle_delete"))(handle);
}
