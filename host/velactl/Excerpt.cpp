#include "host/velactl/Excerpt.h"

#include <algorithm>
#include <cstdint>
#include <set>

#include "host/codec/Operations.h"

namespace velactl {
namespace {

using Names = std::set<std::string>;

constexpr int kPrimaryDisplay = 0;
constexpr int kSecondaryDisplay = 3;

/** "layer 7" for the argument that the operation calls `name`; "layer" when it has none. */
std::string argumentText(const RecordedCall& call, const std::string& name) {
    for (size_t i = 0; i < call.arguments.size(); ++i) {
        if (call.definition->parameters[i].name == name) {
            return std::string(name).append(" ").append(call.arguments[i].dump());
        }
    }
    return name;
}

/** Names of what the call brings into being, as far as others may need it. */
Names madeBy(const RecordedCall& call) {
    Names names;
    if (call.kind != RecordedCall::Kind::kRequest) return names;
    for (const Json& argument : call.arguments)
        names.insert(objectIn(argument));
    names.insert(objectIn(call.answer));
    names.erase("");
    if (call.target == "vela") return names;  // which refuses all that concerns layers
    if (call.operation == "createLayer") names.insert(argumentText(call, "layer"));
    if (call.operation == "buildLayerStack") names.insert("built " + argumentText(call, "display"));
    if (call.operation == "commitLayerStack") {
        names.insert("committed " + argumentText(call, "display"));
    }
    return names;
}

/** Names of what the call cannot do without. */
Names neededBy(const RecordedCall& call) {
    Names names;
    if (call.target == "vela") return names;
    names.insert(call.target);
    if (call.kind != RecordedCall::Kind::kRequest) return names;
    if (call.operation != "createLayer") names.insert(argumentText(call, "layer"));
    if (call.operation == "commitLayerStack")
        names.insert("built " + argumentText(call, "display"));
    if (call.operation.starts_with("present")) {
        const bool isSecond = call.arguments[0] == kSecondaryDisplay;
        names.insert("committed display " +
                     std::to_string(isSecond ? kSecondaryDisplay : kPrimaryDisplay));
    }
    return names;
}

bool haveCommon(const Names& a, const Names& b) {
    return std::any_of(a.begin(), a.end(), [&](const auto& name) { return b.contains(name); });
}

}  // namespace

Calls withoutOrphans(const Recording& recording, const Calls& calls) {
    Names known{"vela"};
    Calls kept;
    for (const size_t i : calls) {
        const RecordedCall& call = recording.calls[i];
        if (!known.contains(call.target)) continue;
        kept.push_back(i);
        known.merge(madeBy(call));
    }
    return kept;
}

Calls withNeeded(const Recording& recording, const Calls& calls) {
    if (calls.empty()) return calls;
    Names needed;
    Calls kept;
    auto next = calls.rbegin();
    for (size_t i = calls.back() + 1; i-- > 0;) {
        const RecordedCall& call = recording.calls[i];
        const Names made = madeBy(call);
        const bool isGiven = next != calls.rend() && *next == i;
        if (isGiven) ++next;
        if (!isGiven && !haveCommon(made, needed)) continue;
        kept.push_back(i);
        for (const std::string& name : made)
            needed.erase(name);
        needed.merge(neededBy(call));
    }
    std::reverse(kept.begin(), kept.end());
    return kept;
}

std::string excerptOf(const Recording& recording, const Calls& calls) {
    std::string text = recording.text[0] + "\n";
    int64_t number = 0;
    for (const size_t i : calls) {
        Json line = Json::parse(recording.text[recording.calls[i].line - 1]);
        line["n"] = ++number;
        text += line.dump() + "\n";
    }
    return text + Json{{"end", number}, {"open", Json::array()}}.dump() + "\n";
}

}  // namespace velactl
