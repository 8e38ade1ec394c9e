#include "host/velactl/Recording.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "host/codec/Operations.h"
#include "host/codec/Status.h"

namespace velactl {
namespace {

using codec::display::IVela;

/** The interface of that name in recordings; null when there is none. */
const codec::Interface* interfaceOf(const std::string& name) {
    for (const auto& [descriptor, interface] : codec::interfaces()) {
        if (interface.name == name) return &interface;
    }
    return nullptr;
}

template <typename T>
bool take(const Json& json, const char* name, T* out, std::string* error) {
    if (!json.contains(name)) return codec::refuse(error, std::string(name) + " is missing");
    std::string why;
    return codec::Codec<T>::read(json[name], out, &why) ||
           codec::refuse(error, std::string(name) + ": " + why);
}

/** Fills the call from a line; false with the reason in *error. */
bool parseCall(const Json& json, RecordedCall* out, std::string* error) {
    if (!json.is_object()) return codec::refuse(error, "not a JSON object");
    if (!take(json, "n", &out->order, error) || !take(json, "client", &out->client, error)) {
        return false;
    }
    if (json.contains("gone")) {
        out->kind = RecordedCall::Kind::kGone;
        return take(json, "gone", &out->target, error);
    }
    if (!take(json, "interface", &out->target, error)) return false;
    const codec::Interface* const interface = interfaceOf(nameOf(out->target));
    if (interface == nullptr) return codec::refuse(error, "no interface " + out->target);
    const char* const key = interface->isCallback ? "event" : "operation";
    if (interface->isCallback) out->kind = RecordedCall::Kind::kEvent;
    if (!take(json, key, &out->operation, error)) return false;
    const auto operation = std::find_if(interface->operations.begin(), interface->operations.end(),
                                        [&](const auto* it) { return it->name == out->operation; });
    if (operation == interface->operations.end()) {
        return codec::refuse(error, interface->name + " has no operation " + out->operation);
    }
    if (!json.contains("arguments") || !json["arguments"].is_array() ||
        json["arguments"].size() != (*operation)->parameters.size()) {
        return codec::refuse(error, "arguments: expected those of " + (*operation)->signature());
    }
    out->definition = *operation;
    out->arguments = json["arguments"].get<std::vector<Json>>();
    if (!json.contains("status") || !json.contains("answer")) {
        return codec::refuse(error, "status or answer is missing");
    }
    out->status = json["status"];
    out->answer = json["answer"];
    std::vector<std::string> refusals;
    if (json.contains("refused") && !take(json, "refused", &refusals, error)) return false;
    if (!refusals.empty()) out->refused = refusals;
    ndk::ScopedAStatus status;
    return codec::statusFromJson(out->status, &status, error);
}

/** Checks that no line is missing and that each object appears before it is used. */
Failure checkObjects(const Recording& recording) {
    std::set<std::string> known{"vela"};
    std::set<int64_t> orders(recording.open.begin(), recording.open.end());
    int64_t expected = 1;
    for (const RecordedCall& call : recording.calls) {
        const std::string where = recording.file + ":" + std::to_string(call.line) + ": ";
        if (!orders.insert(call.order).second) {
            return usageError(where + "a second line of the number " + std::to_string(call.order));
        }
        while (!recording.cut && expected < call.order && orders.contains(expected))
            ++expected;
        if (!recording.cut && expected < call.order) {
            return usageError(where + "the line of number " + std::to_string(expected) +
                              " is missing before this one");
        }
        if (!known.contains(call.target)) {
            return usageError(where + call.target + " appears nowhere before; a line is missing");
        }
        for (const Json& argument : call.arguments)
            known.insert(objectIn(argument));
        known.insert(objectIn(call.answer));
    }
    if (!recording.cut && static_cast<int64_t>(orders.size()) != recording.end) {
        return usageError(recording.file + ":" + std::to_string(recording.text.size()) + ": " +
                          std::to_string(recording.end) + " calls are announced, " +
                          std::to_string(orders.size()) + " are there");
    }
    return {};
}

}  // namespace

std::string nameOf(const std::string& target) {
    return target.substr(0, target.find(' '));
}

int64_t numberOf(const std::string& target) {
    int64_t number = 0;
    const size_t space = std::min(target.find(' '), target.size() - 1);
    (void)std::from_chars(target.data() + space + 1, target.data() + target.size(), number);
    return number;
}

std::string objectIn(const Json& json) {
    if (!json.is_object() || json.size() != 1 || !json.begin()->is_number_integer()) return {};
    return json.begin().key() + " " + json.begin()->dump();
}

Failure parseRecording(std::istream& in, const std::string& file, Recording* out) {
    out->file = file;
    for (std::string line; std::getline(in, line);) {
        // Only a line that was being written when its writer died has no end.
        if (!in.eof()) out->text.push_back(std::move(line));
    }
    const auto at = [&file](size_t line) { return file + ":" + std::to_string(line) + ": "; };
    Json header;
    if (!out->text.empty()) (void)parseJson(out->text[0], &header);
    if (!header.is_object() || header.value("recording", Json()) != 1) {
        return usageError(at(1) + "not a recording of velahost --record");
    }
    const Json interface = header.value("interface", Json(IVela::descriptor));
    if (interface != IVela::descriptor) {
        return usageError(at(1) + "a recording of " + interface.dump() + ", not of " +
                          IVela::descriptor);
    }
    out->tellsRefusals = header.value("refusals", Json()) == true;
    out->cut = true;
    for (size_t i = 1; i < out->text.size(); ++i) {
        Json json;
        const Failure wrong = parseJson(out->text[i], &json);
        if (wrong && !json.is_discarded()) return usageError(at(i + 1) + wrong.text);
        if (json.is_object() && json.contains("end") && i + 1 == out->text.size()) {
            std::string why;
            if (!take(json, "end", &out->end, &why) || !take(json, "open", &out->open, &why)) {
                return usageError(at(i + 1) + why);
            }
            out->cut = false;
            break;
        }
        RecordedCall call;
        std::string why = "not JSON; was it cut or edited?";
        if (json.is_discarded() || !parseCall(json, &call, &why)) {
            return usageError(at(i + 1) + why);
        }
        call.line = i + 1;
        out->calls.push_back(std::move(call));
    }
    std::stable_sort(out->calls.begin(), out->calls.end(),
                     [](const auto& a, const auto& b) { return a.order < b.order; });
    return checkObjects(*out);
}

Failure readRecording(const std::string& file, Recording* out) {
    std::error_code error;
    std::ifstream in(file);
    if (!in || std::filesystem::is_directory(file, error)) {
        return usageError("cannot read " + file + "; velahost --record FILE writes one");
    }
    return parseRecording(in, file, out);
}

Failure writeRecording(const Recording& recording) {
    std::vector<std::string> text = recording.text;
    for (const RecordedCall& call : recording.calls) {
        if (call.kind == RecordedCall::Kind::kGone) continue;
        Json json = Json::parse(text[call.line - 1]);
        json["status"] = call.status;
        json["answer"] = call.answer;
        json.erase("refused");
        if (!call.refused.is_null()) json["refused"] = call.refused;
        text[call.line - 1] = json.dump();
    }
    std::string whole;
    for (const std::string& line : text)
        whole += line + "\n";
    return replaceFile(recording.file, whole);
}

}  // namespace velactl
