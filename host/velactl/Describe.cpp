#include <algorithm>
#include <cctype>
#include <iostream>
#include <numeric>
#include <utility>

#include "host/codec/Names.h"
#include "host/codec/Operations.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/Session.h"

namespace velactl {
namespace {

using codec::Operation;

const char* const kInterfaces[] = {"vela", "composer"};

std::vector<const Operation*> operationsOf(const std::string& interface) {
    return codec::findInterface(interface == "vela"
                                        ? codec::display::IVela::descriptor
                                        : codec::display::IVelaComposerClient::descriptor)
            ->operations;
}

const Operation* operationOf(const std::string& interface, const std::string& name) {
    for (const Operation* operation : operationsOf(interface)) {
        if (operation->name == name) return operation;
    }
    return nullptr;
}

/** "solid-color" for "solid color" and "flip-h-rot-90" for "flip h + rot 90". */
std::string asWord(const std::string& name) {
    std::string word;
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            word += c;
        } else if (!word.empty() && word.back() != '-') {
            word += '-';
        }
    }
    return word;
}

std::string namesText(const DescribedArgument& argument) {
    std::string text;
    size_t number = 0;
    for (const std::string& name : numberNames(argument))
        text += (text.empty() ? ": " : ", ") + std::to_string(number++) + " " + name;
    return text;
}

std::string exampleOf(const std::string& interface, const Description& it) {
    // As one types it in a shell.
    std::string text = "velactl " + interface + " " + it.operation;
    for (const std::string& word : splitWords(it.example)) {
        const bool plain = word.find_first_of("\"[]{}") == std::string::npos;
        text += plain ? " " + word : " '" + word + "'";
    }
    return text;
}

Json argumentsJson(const Operation& operation, const Description& it) {
    Json list = Json::array();
    for (size_t i = 0; i < operation.parameters.size(); ++i) {
        list.push_back({{"name", operation.parameters[i].name},
                        {"type", operation.parameters[i].type},
                        {"meaning", it.arguments[i].meaning},
                        {"names", numberNames(it.arguments[i])}});
    }
    return list;
}

void describe(const std::string& interface, const Description& it) {
    const Operation& operation = *operationOf(interface, it.operation);
    size_t width = 0;
    size_t typeWidth = 0;
    for (const auto& parameter : operation.parameters) {
        width = std::max(width, parameter.name.size());
        typeWidth = std::max(typeWidth, parameter.type.size());
    }
    std::string text = interface + " " + operation.signature() + "\n  " + it.what + "\n";
    for (size_t i = 0; i < operation.parameters.size(); ++i) {
        auto [type, name] = operation.parameters[i];
        name.resize(width, ' ');
        type.resize(typeWidth, ' ');
        text.append("    ").append(name).append("  ").append(type).append("  ");
        text += it.arguments[i].meaning + namesText(it.arguments[i]) + "\n";
    }
    text += "  library     " + std::string(it.library) + "\n  without it  " + it.without +
            "\n  status      " + it.status + "\n  example     " + exampleOf(interface, it) + "\n";
    std::erase(text, '`');
    printResult(text, {{"interface", interface},
                       {"operation", it.operation},
                       {"what", it.what},
                       {"arguments", argumentsJson(operation, it)},
                       {"result", operation.result},
                       {"library", it.library},
                       {"without", it.without},
                       {"status", it.status},
                       {"example", splitWords(it.example)}});
}

size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i])) ==
                              std::tolower(static_cast<unsigned char>(b[j]));
            const size_t best = std::min({row[j] + 1, row[j + 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = std::exchange(row[j + 1], best);
        }
    }
    return row.back();
}

}  // namespace

const Description* findDescription(const std::string& interface, const std::string& operation) {
    for (const Description& it : descriptions(interface)) {
        if (it.operation == operation) return &it;
    }
    return nullptr;
}

std::vector<std::string> numberNames(const DescribedArgument& argument) {
    std::vector<std::string> names;
    for (const char* const name : argument.names)
        names.push_back(asWord(name));
    return names;
}

Json namedNumber(const DescribedArgument& argument, const std::string& word) {
    const std::vector<std::string> names = numberNames(argument);
    const auto it = std::find(names.begin(), names.end(), asWord(word));
    return it == names.end() ? Json() : Json(it - names.begin());
}

Failure unnamedNumber(const DescribedArgument& argument, const std::string& word) {
    return usageError("no number: " + word + suggestion(word, numberNames(argument)) +
                      "; it may be named" + namesText(argument));
}

std::string suggestion(const std::string& word, const std::vector<std::string>& candidates) {
    std::string best;
    size_t least = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const size_t it = distance(word, candidate);
        if (it < least) {
            least = it;
            best = candidate;
        }
    }
    return best.empty() ? "" : " (did you mean " + best + "?)";
}

Failure describe(const std::string& operation) {
    bool found = false;
    std::vector<std::string> names;
    for (const char* const interface : kInterfaces) {
        for (const Description& it : descriptions(interface)) {
            names.emplace_back(it.operation);
            if (!operation.empty() && operation != it.operation) continue;
            found = true;
            describe(interface, it);
        }
    }
    return found ? Failure{}
                 : usageError("no operation " + operation + suggestion(operation, names) +
                              "; velactl list shows all");
}

Failure describeAsMarkdown(const std::string& interface) {
    std::string table =
            "| Operation | Reaches the library as | Without it | Status |\n|---|---|---|---|\n";
    std::string entries;
    const auto cell = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '(') == 1 && text.ends_with(')')
                       ? "`" + text + "`"
                       : text;
    };
    for (const Description& it : descriptions(interface)) {
        const Operation& operation = *operationOf(interface, it.operation);
        table += "| `" + std::string(it.operation) + "` | " + cell(it.library) + " | " +
                 it.without + " | " + it.status + " |\n";
        entries += "\n**`" + operation.signature() + "`** " + it.what + "\n\n";
        for (size_t i = 0; i < operation.parameters.size(); ++i) {
            entries += "- `" + operation.parameters[i].name + "`: " + it.arguments[i].meaning +
                       namesText(it.arguments[i]) + "\n";
        }
        entries += "- for example `" + exampleOf(interface, it) + "`\n";
    }
    printText(table + entries);
    return {};
}

}  // namespace velactl
