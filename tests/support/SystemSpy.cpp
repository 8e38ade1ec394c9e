#include "tests/support/SystemSpy.h"

#include <cutils/native_handle.h>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {

vela::test::SystemSpy::Seen* gSeen = nullptr;

}  // namespace

vela::test::SystemSpy::SystemSpy() {
    gSeen = &mSeen;
}

vela::test::SystemSpy::~SystemSpy() {
    gSeen = nullptr;
}

// The test program's own definitions of these functions come before the libraries'.

void syslog(int priority, const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (gSeen != nullptr) gSeen->lines.push_back({priority, text});
}

ssize_t write(int fd, const void* data, size_t size) {
    if (fd != vela::test::SystemSpy::kFile) return syscall(SYS_write, fd, data, size);
    gSeen->writes.emplace_back(static_cast<const char*>(data), size);
    return 1;
}

int native_handle_delete(native_handle_t* handle) {
    if (gSeen != nullptr) ++gSeen->deleted;
    return reinterpret_cast<decltype(&native_handle_delete)>(
            dlsym(RTLD_NEXT, "native_handle_delete"))(handle);
}
