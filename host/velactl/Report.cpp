#include "host/velactl/Report.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include <android/binder_status.h>

#include "host/codec/Status.h"
#include "host/velactl/Platform.h"

namespace velactl {
namespace {

constexpr size_t kLongestText = 500;
constexpr int kDeepestJson = 100;  // what handles values calls itself for each level
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

std::string prefixed(const std::string& where, const std::string& text) {
    std::string line = isColored() ? "\033[31mvelactl:\033[0m " : "velactl: ";
    if (!where.empty()) line += printable(where) + ": ";
    return line + printable(text) + "\n";
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
    std::string text =
            what + ": " + error["kind"].get<std::string>() + " error " + error["code"].dump();
    // A description that ends so has no message: it says the code once more.
    const auto description = error["description"].get<std::string>();
    if (error["kind"] != "service-specific" || !description.ends_with(": '")) {
        text += ": " + description;
    }
    return {.code = kErrorStatus, .text = std::move(text), .error = error};
}

Failure unmetError(const std::string& kind, const std::string& text) {
    return failure(kErrorStatus, kind.c_str(), text);
}

void reportAsJson() {
    gAsJson = true;
}

void printText(const std::string& text) {
    static std::mutex lock;
    const std::lock_guard guard(lock);
    errno = 0;
    std::cout << text << std::flush;
    if (std::cout.good()) return;
    std::cerr << prefixed("", "cannot write to stdout: " + std::string(std::strerror(errno)))
              << std::flush;
    // Not exit(): other threads may be printing too.
    std::_Exit(kErrorStatus);
}

void printLine(const Json& json) {
    printText(dumped(json) + "\n");
}

void printAnswer(const Json& json) {
    const bool asText = json.is_string() && !gAsJson && isatty(STDOUT_FILENO) != 0;
    printText((asText ? json.get<std::string>() : dumped(json)) + "\n");
}

void printResult(const std::string& text, const Json& json) {
    printText(gAsJson ? dumped(json) + "\n" : text);
}

int report(const Failure& failure) {
    return report("", failure);
}

int report(const std::string& where, const Failure& failure) {
    if (!failure) return kOk;
    note(where, failure.text, {{"error", failure.error}});
    return failure.code;
}

void note(const std::string& where, const std::string& text, const Json& json) {
    Json line = json;
    if (!where.empty()) line.begin()->emplace("where", where);
    std::cerr << (gAsJson ? dumped(line) + "\n" : prefixed(where, text)) << std::flush;
}

void noteRefusal(const std::string& where, const std::string& operation,
                 const std::string& reason) {
    note(where, operation + ": refused: " + reason,
         {{"refusal", {{"operation", operation}, {"reason", reason}}}});
}

Failure writeFile(const std::string& file, const std::string& text) {
    if (file == "-") {
        printText(text);
        return {};
    }
    std::error_code none;
    const bool isNew = !std::filesystem::exists(file, none);
    errno = 0;
    std::ofstream out(file);
    if (out) out << text << std::flush;
    if (out.good()) return {};
    Failure failure = usageError("cannot write " + file + ": " + std::strerror(errno));
    out.close();
    if (isNew) std::filesystem::remove(file, none);
    return failure;
}

Failure replaceFile(const std::string& file, const std::string& text) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::weakly_canonical(file, error);
    if (!error && exists(path, error) && !is_regular_file(path, error)) {
        return usageError("cannot write " + file + ": it is no file");
    }
    const std::string temporary = path.string() + ".new";
    if (!error) {
        if (auto failure = writeFile(temporary, text)) return failure;
        std::filesystem::rename(temporary, path, error);
    }
    return error ? usageError("cannot write " + file + ": " + error.message()) : Failure{};
}

Failure parseJson(const std::string& text, Json* out) {
    std::vector<std::set<std::string>> keys;
    std::string twice;
    bool isDeep = false;
    const auto look = [&](int depth, Json::parse_event_t event, Json& parsed) {
        isDeep = isDeep || depth > kDeepestJson;
        if (event == Json::parse_event_t::object_start) keys.emplace_back();
        if (event == Json::parse_event_t::object_end) keys.pop_back();
        if (event == Json::parse_event_t::key) {
            auto name = parsed.get<std::string>();
            if (!keys.back().insert(name).second) twice = std::move(name);
        }
        return !isDeep;
    };
    *out = Json::parse(text, look, false);
    if (isDeep) return usageError("nested too deep: " + text);
    if (!twice.empty()) return usageError("the key \"" + twice + "\" stands twice in " + text);
    if (!out->is_discarded()) return {};
    const bool isWord = !text.empty() && text.find_first_of("\"[]{}") == std::string::npos;
    return usageError("not JSON: " + text +
                      (isWord ? "; a string needs its quotes: '\"" + text + "\"'" : ""));
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
