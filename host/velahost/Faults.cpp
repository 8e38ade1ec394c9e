#include "host/velahost/Faults.h"

#include <strings.h>

#include <charconv>
#include <cstring>
#include <utility>

#include "host/codec/Names.h"

using lmfg::ChipAnswer;
using lmfg::ChipFault;

namespace {

constexpr int kLongestDelayMs = 60'000;
constexpr const char* kEveryOperation = "*";

template <typename T>
std::optional<T> parseNumber(const std::string& text) {
    T value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

/** -22 for "-22" and for "EINVAL". */
std::optional<int> parseStatus(const std::string& text) {
    const int error = codec::errorNumber(text);
    return error != 0 ? -error : parseNumber<int>(text);
}

bool hasResultFunction(ChipAnswer answer) {
    return answer == ChipAnswer::kResultFunction || answer == ChipAnswer::kTextFunction;
}

/** An operation without an answer that has a status is just not done. */
bool hasStatus(ChipAnswer answer) {
    return answer != ChipAnswer::kTextFunction;
}

std::optional<ChipFault> parseFault(const std::string& what, ChipAnswer answer) {
    if (what.starts_with("delay:")) {
        const auto delay = parseNumber<int>(what.substr(std::strlen("delay:")));
        if (!delay || *delay < 0 || *delay > kLongestDelayMs) return std::nullopt;
        return ChipFault{.status = {}, .delay = std::chrono::milliseconds(*delay)};
    }
    if (what == "silent" || what == "twice") {
        if (!hasResultFunction(answer)) return std::nullopt;
        return ChipFault{.status = {}, .answers = what == "silent" ? 0 : 2};
    }
    const auto status = parseStatus(what);
    return status && hasStatus(answer) ? std::optional(ChipFault{.status = status}) : std::nullopt;
}

std::string faultsOf(ChipAnswer answer) {
    return std::string(hasStatus(answer) ? "a status (-22 or EINVAL), " : "") +
           (hasResultFunction(answer) ? "silent, twice, " : "") + "delay:MS up to " +
           std::to_string(kLongestDelayMs);
}

std::string operationList() {
    std::string text;
    for (const auto& operation : lmfg::chipOperations())
        text += "\n  " + operation.name + ": " + faultsOf(operation.answer);
    return text;
}

}  // namespace

std::string Faults::add(const std::vector<std::string>& texts) {
    Rules rules;
    for (const std::string& text : texts) {
        if (std::string wrong = parse(text, &rules); !wrong.empty()) return wrong;
    }
    const std::lock_guard guard(mLock);
    for (const auto& [operation, added] : rules) {
        auto& known = mRules[operation];
        known.insert(known.end(), added.begin(), added.end());
    }
    mTexts.insert(mTexts.end(), texts.begin(), texts.end());
    return {};
}

std::string Faults::parse(const std::string& text, Rules* out) {
    const size_t equals = text.find('=');
    const size_t at = text.rfind('@');
    const std::string name = text.substr(0, equals);
    std::vector<lmfg::ChipOperation> named;
    for (const auto& operation : lmfg::chipOperations()) {
        // The interface's operations and the chip's differ in their first letters' case.
        if (name == kEveryOperation || strcasecmp(name.c_str(), operation.name.c_str()) == 0) {
            named.push_back(operation);
        }
    }
    if (equals == std::string::npos || named.empty()) {
        return "'" + text + "' names no operation of the chip; " + help();
    }
    Rule rule;
    if (at != std::string::npos) {
        const auto every = parseNumber<uint64_t>(text.substr(at + 1));
        if (!every || *every == 0) return "'" + text + "': @EVERY is a number from 1";
        rule.every = *every;
    }
    const std::string what =
            text.substr(equals + 1, at == std::string::npos ? at : at - equals - 1);
    bool isTaken = false;
    for (const auto& operation : named) {
        const auto fault = parseFault(what, operation.answer);
        const bool isUnheard = fault && fault->status && operation.answer == ChipAnswer::kNone;
        if (!fault || (isUnheard && name == kEveryOperation)) continue;
        rule.fault = *fault;
        (*out)[operation.name].push_back(rule);
        isTaken = true;
    }
    if (isTaken) return {};
    return "'" + text + "': " + name + " takes " +
           (named.size() == 1 ? faultsOf(named[0].answer)
                              : "what one of them takes:" + operationList());
}

std::vector<std::string> Faults::rules() {
    const std::lock_guard guard(mLock);
    return mTexts;
}

std::string Faults::help() {
    return "OPERATION=WHAT[@EVERY] takes:" + operationList();
}

std::optional<ChipFault> Faults::fault(const lmfg::ChipCall& call) {
    const std::lock_guard guard(mLock);
    const auto found = mRules.find(call.operation);
    if (found == mRules.end()) return std::nullopt;
    std::optional<ChipFault> chosen;
    for (Rule& rule : found->second) {
        if (++rule.calls % rule.every == 0 && !chosen) chosen = rule.fault;
    }
    return chosen;
}
