#include "host/velactl/Session.h"

#include <unistd.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "host/codec/Names.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Service.h"

namespace velactl {

using codec::CallableOperation;

namespace {

template <typename List>
std::vector<std::string> namesOf(const List& operations) {
    std::vector<std::string> names;
    names.reserve(operations.size());
    for (const auto& operation : operations)
        names.push_back(operation.name);
    return names;
}

/** Reads the words as a call of one of the operations; touches no service. */
template <typename Interface>
Failure bind(const std::vector<CallableOperation<Interface>>& operations,
             const std::vector<std::string>& words,
             typename CallableOperation<Interface>::Call* out) {
    const std::string interface = codec::findInterface(Interface::descriptor)->name;
    if (words.empty()) {
        return usageError(interface + " needs an operation; velactl list shows all");
    }
    const auto* const operation = codec::findOperation(operations, words.front());
    if (operation == nullptr) {
        return usageError("no operation " + words.front() +
                          suggestion(words.front(), namesOf(operations)) +
                          "; velactl list shows all");
    }
    const Description* const description = findDescription(interface, operation->name);
    std::vector<Json> arguments;
    for (size_t i = 1; i < words.size(); ++i) {
        Json value = Json::parse(words[i], nullptr, false);
        const bool isKnown = description != nullptr && i <= description->arguments.size();
        const DescribedArgument argument =
                isKnown ? description->arguments[i - 1] : DescribedArgument{};
        Json number;
        if (value.is_discarded() || value.is_string()) {
            number = namedNumber(argument, value.is_string() ? value.get<std::string>() : words[i]);
        }
        if (!number.is_null()) {
            value = std::move(number);
        } else if (value.is_discarded() && !argument.names.empty()) {
            return unnamedNumber(argument, words[i]);
        } else if (auto failure = parseJson(words[i], &value)) {
            return failure;
        }
        arguments.push_back(std::move(value));
    }
    const auto find = [](const std::string&, const Json&, std::string* error) {
        *error = "expected null (use monitor to register)";
        return nullptr;
    };
    std::string error;
    *out = operation->bind(arguments, find, &error);
    return *out ? Failure{} : usageError(operation->signature() + ": " + error);
}

/** What an error status of the operation means, as far as can be told without its chip. */
std::string meaningOf(const std::string& interface, const std::string& operation, int64_t code) {
    if (code == -1) return "the service library is absent, or EPERM";
    if (code == -2 && interface == "vela" && findDescription("vela", operation) == nullptr) {
        return "only a composer client serves it: velactl composer " + operation;
    }
    const std::string name = code < 0 ? codec::errorName(-code) : "";
    return name.starts_with('E') ? name : "";
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
    if (mVela != nullptr) return {};
    if (auto failure = connect(&mVela)) return failure;
    mTakeRefusals = refusalTaker();
    return {};
}

Failure Session::needComposer() {
    if (mComposer != nullptr) return {};
    if (auto failure = needVela()) return failure;
    if (isatty(STDERR_FILENO) != 0) {
        note("", "composer events go to this client from now on, not to one made before",
             {{"note", {{"description", "composer events go to this client"}}}});
    }
    return statusError("createComposerClient", mVela->createComposerClient(&mComposer));
}

Failure Session::check(const std::string& interface, const std::vector<std::string>& words) {
    const auto checked = [&words]<typename Interface>(
                                 const std::vector<CallableOperation<Interface>>& operations) {
        typename CallableOperation<Interface>::Call call;
        return bind(operations, words, &call);
    };
    return interface == "vela" ? checked(codec::velaOperations())
                               : checked(codec::composerOperations());
}

Session::Result Session::run(const std::string& interface, const std::vector<std::string>& words) {
    return interface == "vela"
                   ? run(codec::velaOperations(), &Session::needVela, mVela, words)
                   : run(codec::composerOperations(), &Session::needComposer, mComposer, words);
}

template <typename Interface>
Session::Result Session::run(const std::vector<CallableOperation<Interface>>& operations,
                             Failure (Session::*need)(), const std::shared_ptr<Interface>& target,
                             const std::vector<std::string>& words) {
    Result result;
    typename CallableOperation<Interface>::Call call;
    result.failure = bind(operations, words, &call);
    if (!result.failure) result.failure = (this->*need)();
    if (result.failure) return result;
    const codec::Outcome outcome = call(*target);
    const std::string& operation = words.front();
    result.failure = statusError(operation, outcome.status);
    result.answer = outcome.value;
    const std::string interface = codec::findInterface(Interface::descriptor)->name;
    if (mTakeRefusals) result.refusals = mTakeRefusals();
    Failure& failure = result.failure;
    if (failure.code == kErrorStatus && failure.error["kind"] == "service-specific") {
        const std::string cause =
                result.refusals.empty()
                        ? meaningOf(interface, operation, failure.error["code"].get<int64_t>())
                        : result.refusals.back();
        if (!cause.empty()) {
            failure.text += " (" + cause + ")";
            failure.error["cause"] = cause;
        }
    }
    const Description* const description = findDescription(interface, operation);
    const Json& code = result.answer;
    if (result.refusals.empty() && description != nullptr && code.is_number_integer() && code < 0 &&
        std::string(description->status).starts_with("code")) {
        result.refusals.push_back(code.dump() + " (" + codec::errorName(-code.get<int64_t>()) +
                                  ")");
    }
    return result;
}

}  // namespace velactl
