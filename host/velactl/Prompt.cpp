#include "host/velactl/Prompt.h"

#include <editline/readline.h>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/Script.h"

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
    for (const codec::RecordDescription& record : codec::recordDescriptions()) {
        if (record.name != type) continue;
        std::string text;
        for (const codec::Parameter& field : record.fields)
            text += (text.empty() ? "\"" : ",\"") + field.name + "\":" + templateOf(field.type);
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
    if (const Description* const it = findDescription(words[0], words[1]); it != nullptr) {
        for (std::string& name : numberNames(it->arguments[index]))
            out->push_back(std::move(name));
        if (!it->arguments[index].names.empty()) return;
    }
    out->push_back(templateOf(operation->parameters[index].type));
}

/** What may follow the words that stand before. */
std::vector<std::string> candidates(const std::vector<std::string>& words) {
    std::vector<std::string> list;
    if (words.empty()) {
        for (const ScriptCommand& command : scriptCommands())
            list.emplace_back(command.name);
        return list;
    }
    if (words[0] == "try") return candidates({words.begin() + 1, words.end()});
    if (words[0] == "help" && words.size() == 1) {
        for (const char* const interface : {"vela", "composer"}) {
            for (const Description& it : descriptions(interface))
                list.emplace_back(it.operation);
        }
    }
    if (words[0] == "vela") addOperations(codec::velaOperations(), words, &list);
    if (words[0] == "composer") addOperations(codec::composerOperations(), words, &list);
    if (words[0] == "expect" && words.size() == 1) list = {"ok", "error", "like", "refusals"};
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

volatile std::sig_atomic_t gInterrupted = 0;

sigset_t gWhileWaiting;

/** While it lives, Ctrl-C interrupts nextCharacter(); a command that runs is ended by it. */
class InterruptCatcher {
  public:
    InterruptCatcher() {
        struct sigaction action {};
        action.sa_handler = [](int) { gInterrupted = 1; };
        sigaction(SIGINT, &action, &mBefore);
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        pthread_sigmask(SIG_BLOCK, &interrupt, &gWhileWaiting);
    }
    ~InterruptCatcher() {
        pthread_sigmask(SIG_SETMASK, &gWhileWaiting, nullptr);
        sigaction(SIGINT, &mBefore, nullptr);
    }
    InterruptCatcher(const InterruptCatcher&) = delete;
    InterruptCatcher& operator=(const InterruptCatcher&) = delete;

  private:
    struct sigaction mBefore {};
};

/** EOF at the end of the input, and for Ctrl-C. */
int nextCharacter(FILE* /*in*/) {
    std::mbstate_t state{};
    while (true) {
        pollfd readable{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        while (ppoll(&readable, 1, nullptr, &gWhileWaiting) < 0 && gInterrupted == 0) {
        }
        char byte = 0;
        if (gInterrupted != 0 || read(STDIN_FILENO, &byte, 1) != 1) return EOF;
        wchar_t character = 0;
        const size_t length = std::mbrtowc(&character, &byte, 1, &state);
        if (length <= 1) return static_cast<int>(character);
        if (length == static_cast<size_t>(-1)) state = {};
    }
}

}  // namespace

Prompt::Prompt() : mHistory(historyFile()) {
    (void)std::setlocale(LC_CTYPE, "");
    rl_getc_function = nextCharacter;  // which editline asks for at its first use
    static char breaks[] = " \t";
    rl_readline_name = const_cast<char*>("velactl");
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = breaks;
    rl_basic_word_break_characters = breaks;
    using_history();
    stifle_history(kMostRemembered);
    if (!mHistory.empty()) (void)read_history(mHistory.c_str());
    // It would end the program, and its terminal's whole process group.
    rl_catch_signals = 0;
    std::cerr << "Operations of vela and composer; Tab completes them and their arguments, help "
                 "tells of them, Ctrl-D ends.\n";
}

std::optional<std::string> Prompt::readLine(size_t open) {
    std::string prompt;
    for (size_t i = 0; i < open; ++i)
        prompt += "repeat ";
    prompt += "vela> ";
    const InterruptCatcher catcher;
    while (true) {
        gInterrupted = 0;
        const std::unique_ptr<char, FreeText> line(readline(prompt.c_str()));
        if (line == nullptr) {
            std::cerr << "\n";
            if (gInterrupted != 0) continue;
            return std::nullopt;
        }
        if (*line != '\0') {
            add_history(line.get());
            if (!mHistory.empty()) (void)write_history(mHistory.c_str());
        }
        return line.get();
    }
}

}  // namespace velactl
