#include "host/velactl/Prompt.h"

#include <editline/readline.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velactl/Session.h"

namespace velactl {
namespace {

constexpr int kMostRemembered = 1000;

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

std::string historyFile() {
    const char* const state = std::getenv("XDG_STATE_HOME");
    const char* const home = std::getenv("HOME");
    if (state == nullptr && home == nullptr) return {};
    const std::filesystem::path folder =
            (state != nullptr ? std::filesystem::path(state)
                              : std::filesystem::path(home) / ".local" / "state") /
            "vela";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return error ? "" : (folder / "history").string();
}

/** A value of the type to start from: "[]" for a list, all fields for a record. */
std::string templateOf(const std::string& type) {
    if (type.ends_with("[]")) return "[]";
    if (type == "boolean") return "false";
    if (type == "String") return "\"\"";
    if (type == "ParcelFileDescriptor") return R"({"size":4096})";
    if (type.starts_with("I")) return "null";
    for (const std::string& record : codec::recordDescriptions()) {
        if (!record.starts_with(type + " {")) continue;
        std::string text;
        // "Name {int a, Other b}"
        const std::string fields = record.substr(type.size() + 2, record.size() - type.size() - 3);
        for (size_t at = 0; at < fields.size();) {
            const size_t end = std::min(fields.find(',', at), fields.size());
            const size_t space = fields.find(' ', at);
            text += (text.empty() ? "\"" : ",\"") + fields.substr(space + 1, end - space - 1) +
                    "\":" + templateOf(fields.substr(at, space - at));
            at = end + 2;
        }
        return "{" + text + "}";
    }
    return "0";
}

template <typename List>
void addOperations(const List& operations, const std::vector<std::string>& words,
                   std::vector<std::string>* out) {
    if (words.size() == 1) {
        for (const auto& operation : operations)
            out->push_back(operation.name);
        return;
    }
    const auto* const operation = codec::findOperation(operations, words[1]);
    const size_t index = words.size() - 2;
    if (operation == nullptr || index >= operation->parameters.size()) return;
    out->push_back(templateOf(operation->parameters[index].type));
}

/** What may follow the words that stand before. */
std::vector<std::string> candidates(const std::vector<std::string>& words) {
    if (words.empty()) return {"vela", "composer", "expect", "sleep", "repeat", "end"};
    std::vector<std::string> list;
    if (words[0] == "vela") addOperations(codec::velaOperations(), words, &list);
    if (words[0] == "composer") addOperations(codec::composerOperations(), words, &list);
    if (words[0] == "expect" && words.size() == 1) list = {"ok", "error"};
    return list;
}

char* nextMatch(const char* text, int state) {
    static std::vector<std::string> matches;
    static size_t next = 0;
    if (state == 0) {
        matches.clear();
        next = 0;
        const std::string line(rl_line_buffer, static_cast<size_t>(rl_point));
        auto words = splitWords(line.substr(0, line.size() - std::strlen(text)));
        for (std::string& candidate : candidates(words)) {
            if (candidate.starts_with(text)) matches.push_back(std::move(candidate));
        }
    }
    return next < matches.size() ? strdup(matches[next++].c_str()) : nullptr;
}

char** complete(const char* text, int /*start*/, int /*end*/) {
    rl_attempted_completion_over = 1;  // no file names
    return rl_completion_matches(text, nextMatch);
}

}  // namespace

Prompt::Prompt() : mHistory(historyFile()) {
    static char breaks[] = " \t";
    rl_readline_name = const_cast<char*>("velactl");
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = breaks;
    rl_basic_word_break_characters = breaks;
    using_history();
    stifle_history(kMostRemembered);
    if (!mHistory.empty()) (void)read_history(mHistory.c_str());
    std::cerr << "Operations of vela and composer; Tab completes them and their arguments, Ctrl-D "
                 "ends.\n";
}

Prompt::~Prompt() {
    if (!mHistory.empty()) (void)write_history(mHistory.c_str());
}

std::optional<std::string> Prompt::readLine() {
    const std::unique_ptr<char, FreeText> line(readline("vela> "));
    if (line == nullptr) {
        std::cerr << "\n";
        return std::nullopt;
    }
    if (*line != '\0') add_history(line.get());
    return line.get();
}

}  // namespace velactl
