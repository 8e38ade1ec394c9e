#include "host/velactl/Report.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <utility>

#include <android/binder_status.h>

#include "host/codec/Status.h"
#include "host/velactl/Platform.h"

namespace velactl {
namespace {

constexpr size_t kLongestText = 500;
constexpr int64_t kPatienceMs = 2000;
constexpr int64_t kStepMs = 200;

bool gAsJson = false;

bool isColored() {
    return isatty(STDERR_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

std::string dumped(const Json& json) {
    // The service may answer bytes that are no UTF-8; they must not cost the line.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void print(const std::string& text) {
    static std::mutex lock;
    const std::lock_guard guard(lock);
    std::cout << text << std::endl;
}

int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

Failure failure(ExitCode code, const char* kind, const std::string& text) {
    return {.code = code, .text = text, .error = {{"kind", kind}, {"description", text}}};
}

}  // namespace

Failure usageError(const std::string& text) {
    return failure(kUsage, "usage", text);
}

Failure noService(const std::string& text) {
    return failure(kNoService, "no-service", text);
}

Failure statusError(const std::string& what, const ndk::ScopedAStatus& status) {
    if (status.isOk()) return {};
    const Json error = codec::statusToJson(status.get());
    if (status.getStatus() == STATUS_DEAD_OBJECT) {
        return noService(what + ": the service died; " + restartAdvice());
    }
    return {.code = kErrorStatus,
            .text = what + ": " + error["kind"].get<std::string>() + " error " +
                    error["code"].dump() + ": " + error["description"].get<std::string>(),
            .error = error};
}

void reportAsJson() {
    gAsJson = true;
}

void printLine(const Json& json) {
    print(dumped(json));
}

void printAnswer(const Json& json) {
    const bool asText = json.is_string() && !gAsJson && isatty(STDOUT_FILENO) != 0;
    print(asText ? json.get<std::string>() : dumped(json));
}

void printResult(const std::string& text, const Json& json) {
    print(gAsJson ? dumped(json) : text);
}

int report(const Failure& failure) {
    return report("", failure);
}

int report(const std::string& where, const Failure& failure) {
    if (!failure) return kOk;
    std::string line;
    if (gAsJson) {
        Json error = failure.error;
        if (!where.empty()) error["where"] = where;
        line = dumped({{"error", std::move(error)}});
    } else {
        line = isColored() ? "\033[31mvelactl:\033[0m " : "velactl: ";
        if (!where.empty()) line += printable(where) + ": ";
        line += printable(failure.text);
    }
    std::cerr << line + "\n" << std::flush;
    return failure.code;
}

Failure writeFile(const std::string& file, const std::string& text) {
    if (file == "-") {
        std::cout << text << std::flush;
        return std::cout ? Failure{} : usageError("cannot write stdout");
    }
    std::ofstream out(file);
    out << text;
    out.close();
    return out.fail() ? usageError("cannot write " + file) : Failure{};
}

std::string printable(const std::string& text) {
    std::string safe;
    for (const char c : text.substr(0, kLongestText)) {
        const auto byte = static_cast<unsigned char>(c);
        char code[8];
        std::snprintf(code, sizeof(code), "\\x%02x", byte);
        // 0x80 to 0x9f behind 0xc2 are control characters too.
        const bool high = !safe.empty() && safe.back() == '\xc2' && byte >= 0x80 && byte < 0xa0;
        if (high) safe.pop_back();
        safe += high ? code : c == '\n' || (byte >= ' ' && byte != 0x7f) ? std::string(1, c) : code;
    }
    return text.size() > kLongestText ? safe + "..." : safe;
}

Progress::Progress(std::string what) : mWhat(std::move(what)), mStart(nowMs()) {}

Progress::~Progress() {
    if (mShown) std::cerr << "\r\033[K" << std::flush;
}

void Progress::reached(size_t done, size_t of) {
    if (mWhat.empty() || isatty(STDERR_FILENO) == 0) return;
    static int64_t last = 0;
    const int64_t now = nowMs();
    if (now - mStart < kPatienceMs || now - last < kStepMs) return;
    last = now;
    mShown = true;
    std::cerr << "\r\033[K" << mWhat << ": " << done;
    if (of != 0) std::cerr << " of " << of;
    std::cerr << std::flush;
}

}  // namespace velactl
