#include <atomic>

#include <android/trace.h>

#include "binder_host/Trace.h"

namespace {

std::atomic<binder::TraceSink*> gSink{nullptr};

binder::TraceSink* sink() {
    return gSink.load(std::memory_order_acquire);
}

}  // namespace

void binder::setTraceSink(TraceSink* sink) {
    gSink.store(sink, std::memory_order_release);
}

bool ATrace_isEnabled() {
    return sink() != nullptr;
}

void ATrace_beginSection(const char* sectionName) {
    if (auto* const it = sink(); it != nullptr) it->beginSection(sectionName);
}

void ATrace_endSection() {
    if (auto* const it = sink(); it != nullptr) it->endSection();
}

void ATrace_beginAsyncSection(const char* sectionName, int32_t cookie) {
    if (auto* const it = sink(); it != nullptr) it->beginAsyncSection(sectionName, cookie);
}

void ATrace_endAsyncSection(const char* sectionName, int32_t cookie) {
    if (auto* const it = sink(); it != nullptr) it->endAsyncSection(sectionName, cookie);
}

void ATrace_setCounter(const char* counterName, int64_t counterValue) {
    if (auto* const it = sink(); it != nullptr) it->setCounter(counterName, counterValue);
}
