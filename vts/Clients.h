#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>

#include "vts/Service.h"

namespace vts {

/** What a client does when it is told something, in words; its status. */
using Hear = std::function<ScopedAStatus(const std::string& arguments)>;

inline ScopedAStatus ignore(const std::string& /*arguments*/) {
    return ScopedAStatus::ok();
}

/** A client that answers with a number, and hears what it is told. */
template <typename Interface>
class Client : public Interface {
  public:
    explicit Client(Hear hear) : mHear(std::move(hear)) {}

    int32_t answer = 7;

  protected:
    template <typename... T>
    ScopedAStatus hear(const T&... values) {
        std::string text;
        ((text += (text.empty() ? "" : " ") + testing::PrintToString(values)), ...);
        return mHear(text);
    }

  private:
    const Hear mHear;
};

struct Callback : Client<display::BnVelaCallback> {
    using Client::Client;
    ScopedAStatus onFeatureChanged(int32_t feature, const Values& values) override {
        return hear(feature, values);
    }
};

struct SoftClient : Client<display::BnSoftVelaClient> {
    using Client::Client;
    ScopedAStatus setConfig(int64_t id, int32_t config, const Values& in, int32_t* out) override {
        *out = answer;
        return hear(id, config, in);
    }
    ScopedAStatus getConfig(int64_t id, int32_t config, const Values& in, Values* out) override {
        *out = {answer};
        return hear(id, config, in);
    }
};

struct Compositor : Client<display::BnVelaComposerCallback> {
    using Client::Client;
    ScopedAStatus onConfigChanged(int64_t display, int32_t config, const Values& values,
                                  Values* out) override {
        *out = {answer};
        return hear(display, config, values);
    }
    ScopedAStatus onRefreshRequested(int64_t display) override { return hear(display); }
    ScopedAStatus onDisplayPowerChanged(int64_t display, int32_t mode) override {
        return hear(display, mode);
    }
    ScopedAStatus onContentSamplingRequested(int64_t display, int32_t value1, int64_t value2,
                                             display::ContentSamples* out) override {
        *out = {answer, {1}, {2, 2}, {3}, {4}};
        return hear(display, value1, value2);
    }
};

enum class Kind { kCallback, kSoftClient, kCompositor };

/** Every identifier that a test registers under. Of soft clients the lowest is asked. */
constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
constexpr int64_t kId = 0;
constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();
constexpr int64_t kIdentifiers[] = {kLowest, -1, kId, kHighest};

/** Registers a client, or null without `hear`; the status. Compositors have no identifier. */
std::string enroll(const Service& service, Kind kind, int64_t id, const Hear& hear);

/** A process with a registered client that, once told something, never answers. */
class ClientProcess {
  public:
    ClientProcess(const std::string& instance, Kind kind, int64_t id);
    ~ClientProcess();
    ClientProcess(const ClientProcess&) = delete;
    ClientProcess& operator=(const ClientProcess&) = delete;

    /** First the status of its registration, then what it is told; nothing when it ends. */
    std::string hear();
    /** Returns when the process is gone; false if it ended before, as it does after a minute. */
    bool kill();

    /** To be called by main(): plays such a client if the arguments say so. */
    static void playIfAsked(int argc, char** argv);

  private:
    pid_t mPid = -1;
    std::FILE* mLines = nullptr;
};

}  // namespace vts
