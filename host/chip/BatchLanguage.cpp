#include "host/chip/BatchLanguage.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>

namespace lmfg {

namespace {

struct Syntax {
    Verb verb;
    std::string_view name;
    /**
     * One letter an argument: 'l' 64-bit, 'i' 32-bit, 'o' optional 32-bit; 'v' takes all that
     * follows as a list of 32-bit numbers, 't' as text.
     */
    std::string_view arguments;
    std::string_view usage;
};

constexpr Syntax kSyntax[] = {
        {Verb::kSet, "set", "iv", "set TYPE [VALUE...]"},
        {Verb::kGet, "get", "ioo", "get TYPE [FIRST [COUNT]]"},
        {Verb::kFeature, "feature", "iv", "feature NUMBER [VALUE...]"},
        {Verb::kRefresh, "refresh", "l", "refresh DISPLAY"},
        {Verb::kPower, "power", "li", "power DISPLAY MODE"},
        {Verb::kConfig, "config", "liv", "config DISPLAY CONFIG [VALUE...]"},
        {Verb::kSample, "sample", "lil", "sample DISPLAY A B"},
        {Verb::kSoftSet, "soft-set", "liv", "soft-set CLIENT CONFIG [VALUE...]"},
        {Verb::kSoftGet, "soft-get", "liv", "soft-get CLIENT CONFIG [VALUE...]"},
        {Verb::kQuery, "query", "it", "query TYPE [TEXT]"},
        {Verb::kOsd, "osd", "ii", "osd STATE OVERFLOW"},
        {Verb::kWait, "wait", "", "wait"},
        {Verb::kLast, "last", "", "last"},
        {Verb::kEvents, "events", "", "events"},
        {Verb::kClear, "clear", "", "clear"},
};

constexpr std::string_view kSpaces = " \t\r";

std::string_view trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kSpaces);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

std::string_view takeWord(std::string_view& text) {
    text = trim(text);
    const std::string_view word = text.substr(0, text.find_first_of(kSpaces));
    text.remove_prefix(word.size());
    return word;
}

template <typename T>
std::optional<T> number(std::string_view word) {
    T value{};
    const auto [end, error] = std::from_chars(word.begin(), word.end(), value);
    if (error != std::errc() || end != word.end()) return std::nullopt;
    return value;
}

bool parseArguments(const Syntax& syntax, std::string_view rest, BatchCommand& command) {
    for (const char kind : syntax.arguments) {
        if (kind == 't') {
            command.text = trim(rest);
            return true;
        }
        if (kind == 'v') {
            while (!trim(rest).empty()) {
                const auto value = number<int>(takeWord(rest));
                if (!value) return false;
                command.values.push_back(*value);
            }
            return true;
        }
        const std::string_view word = takeWord(rest);
        if (word.empty() && kind == 'o') continue;
        const std::optional<int64_t> value =
                kind == 'l' ? number<int64_t>(word) : std::optional<int64_t>(number<int>(word));
        if (!value) return false;
        command.numbers.push_back(*value);
    }
    return trim(rest).empty();
}

/** Parses one command into `result`; false, with the error set, when it is malformed. */
bool parseCommand(std::string_view text, size_t line, BatchParse& result) {
    std::string_view rest = text;
    const std::string_view name = takeWord(rest);
    if (name.empty()) return true;
    const std::string where = "line " + std::to_string(line) + ": ";
    const auto* syntax = std::find_if(std::begin(kSyntax), std::end(kSyntax),
                                      [&](const Syntax& it) { return it.name == name; });
    if (syntax == std::end(kSyntax)) {
        result.error = where + "unknown command '" + std::string(name) + "'";
        return false;
    }
    BatchCommand command{.verb = syntax->verb, .name = std::string(name), .line = line};
    if (!parseArguments(*syntax, rest, command)) {
        result.error = where + "usage: " + std::string(syntax->usage);
        return false;
    }
    result.commands.push_back(std::move(command));
    return true;
}

}  // namespace

BatchParse parseBatch(std::string_view text) {
    BatchParse result;
    for (size_t line = 1; !text.empty(); ++line) {
        const std::string_view whole = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), whole.size() + 1));
        std::string_view commands = whole.substr(0, whole.find('#'));
        while (!commands.empty()) {
            const std::string_view command = commands.substr(0, commands.find(';'));
            commands.remove_prefix(std::min(commands.size(), command.size() + 1));
            if (!parseCommand(command, line, result)) return {.error = result.error};
        }
    }
    return result;
}

}  // namespace lmfg
