#include "host/velactl/Session.h"

#include <cctype>
#include <cstddef>
#include <utility>

#include "host/velactl/Platform.h"

namespace velactl {

using codec::CallableOperation;

namespace {

/** Parses the arguments, makes the target ready (`need`) and calls. */
template <typename Interface, typename Need>
Failure runOperation(const std::vector<CallableOperation<Interface>>& operations,
                     const std::vector<std::string>& words,
                     const std::shared_ptr<Interface>& target, Need need, Json* answer) {
    const auto* const operation = codec::findOperation(operations, words.front());
    if (operation == nullptr) {
        return usageError("no operation " + words.front() + "; velactl list shows all");
    }
    std::vector<Json> arguments;
    for (size_t i = 1; i < words.size(); ++i) {
        arguments.push_back(Json::parse(words[i], nullptr, false));
        if (arguments.back().is_discarded()) return usageError("not JSON: " + words[i]);
    }
    if (auto failure = need()) return failure;
    const auto find = [](const std::string&, const Json&, std::string* error) {
        *error = "expected null (use monitor to register)";
        return nullptr;
    };
    const codec::Outcome outcome = operation->call(*target, arguments, find);
    if (!outcome.usageError.empty()) {
        return usageError(operation->signature() + ": " + outcome.usageError);
    }
    *answer = outcome.value;
    return statusError(operation->name, outcome.status);
}

}  // namespace

std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (!inString && depth <= 0 && std::isspace(static_cast<unsigned char>(c))) {
            if (!word.empty()) words.push_back(std::exchange(word, {}));
            continue;
        }
        word += c;
        if (inString && c == '\\' && i + 1 < line.size()) {
            word += line[++i];
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString) {
            depth += (c == '[' || c == '{') ? 1 : (c == ']' || c == '}') ? -1 : 0;
        }
    }
    if (!word.empty()) words.push_back(std::move(word));
    return words;
}

Failure Session::needVela() {
    return mVela != nullptr ? Failure{} : connect(&mVela);
}

Failure Session::needComposer() {
    if (mComposer != nullptr) return {};
    if (auto failure = needVela()) return failure;
    return statusError("createComposerClient", mVela->createComposerClient(&mComposer));
}

Failure Session::run(const std::string& interface, const std::vector<std::string>& words,
                     Json* answer) {
    if (words.empty()) {
        return usageError(interface + " needs an operation; velactl list shows all");
    }
    if (interface == "vela") {
        return runOperation(
                codec::velaOperations(), words, mVela, [this] { return needVela(); }, answer);
    }
    return runOperation(
            codec::composerOperations(), words, mComposer, [this] { return needComposer(); },
            answer);
}

}  // namespace velactl
