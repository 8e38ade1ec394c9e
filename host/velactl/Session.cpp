#include "host/velactl/Session.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "host/velactl/Operations.h"
#include "host/velactl/Report.h"
#include "host/velactl/Service.h"

namespace velactl {
namespace {

/** The words of a line; white space within a JSON string, array or object does not part them. */
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

template <typename Interface>
const Operation<Interface>* find(const std::vector<Operation<Interface>>& operations,
                                 const std::string& name) {
    const auto found =
            std::find_if(operations.begin(), operations.end(),
                         [&name](const auto& operation) { return operation.name == name; });
    return found == operations.end() ? nullptr : &*found;
}

int usage(const std::string& text) {
    return failWithLine(kUsage, "usage", text);
}

/** Parses the arguments, makes the target ready (`need`), calls and prints the answer. */
template <typename Interface, typename Need>
int runOperation(const std::vector<Operation<Interface>>& operations,
                 const std::vector<std::string>& words, const std::shared_ptr<Interface>& target,
                 Need need) {
    const Operation<Interface>* operation = find(operations, words.front());
    if (operation == nullptr) return usage("no operation " + words.front() + " (see list)");
    std::vector<Json> arguments;
    for (size_t i = 1; i < words.size(); ++i) {
        arguments.push_back(Json::parse(words[i], nullptr, false));
        if (arguments.back().is_discarded()) return usage("not JSON: " + words[i]);
    }
    if (const int code = need(); code != kOk) return code;
    const Outcome outcome = operation->call(*target, arguments);
    if (!outcome.usageError.empty()) {
        return usage(operation->signature() + ": " + outcome.usageError);
    }
    if (!outcome.status.isOk()) return reportStatus(operation->name, outcome.status);
    printLine(outcome.value);
    return kOk;
}

}  // namespace

int Session::needVela() {
    if (mVela != nullptr) return kOk;
    std::string error;
    mVela = connect(&error);
    return mVela != nullptr ? kOk : failWithLine(kNoService, "no-service", error);
}

int Session::needComposer() {
    if (mComposer != nullptr) return kOk;
    if (const int code = needVela(); code != kOk) return code;
    const auto status = mVela->createComposerClient(&mComposer);
    return status.isOk() ? kOk : reportStatus("createComposerClient", status);
}

int Session::run(const std::string& interface, const std::vector<std::string>& words) {
    if (words.empty()) return usage(interface + " needs an operation (see list)");
    if (interface == "vela") {
        return runOperation(velaOperations(), words, mVela, [this] { return needVela(); });
    }
    if (interface == "composer") {
        return runOperation(composerOperations(), words, mComposer,
                            [this] { return needComposer(); });
    }
    return usage("no interface " + interface + ": vela or composer");
}

int Session::runLine(const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    if (words.empty() || words.front().starts_with('#')) return kOk;
    const std::string interface = words.front();
    words.erase(words.begin());
    return run(interface, words);
}

int Session::runAll(std::istream& lines, bool keepGoing) {
    int result = kOk;
    for (std::string line; std::getline(lines, line);) {
        const int code = runLine(line);
        if (code == kOk) continue;
        if (result == kOk) result = code;
        if (!keepGoing) break;
    }
    return result;
}

}  // namespace velactl
