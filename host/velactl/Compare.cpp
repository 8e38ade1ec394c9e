#include "host/velactl/Compare.h"

namespace velactl {

using codec::Json;

namespace {

std::string fieldOf(const std::string& record, const std::string& name) {
    return std::string(record).append(".").append(name);
}

}  // namespace

std::string differenceAt(const Json& expected, const Json& actual, bool namedFieldsOnly,
                         const std::string& root) {
    if (expected.is_object() && actual.is_object()) {
        for (const auto& [name, value] : expected.items()) {
            std::string field = fieldOf(root, name);
            if (!actual.contains(name)) return field;
            if (auto at = differenceAt(value, actual[name], namedFieldsOnly, field); !at.empty()) {
                return at;
            }
        }
        for (const auto& [name, value] : actual.items()) {
            if (!namedFieldsOnly && !expected.contains(name)) return fieldOf(root, name);
        }
        return {};
    }
    if (expected.is_array() && actual.is_array() && expected.size() == actual.size()) {
        for (size_t i = 0; i < expected.size(); ++i) {
            const std::string element = root + "[" + std::to_string(i) + "]";
            if (auto at = differenceAt(expected[i], actual[i], namedFieldsOnly, element);
                !at.empty()) {
                return at;
            }
        }
        return {};
    }
    return expected == actual ? std::string() : root;
}

Json valueAt(const Json& value, const std::string& place, const std::string& root) {
    Json found = Json::object({{root, value}});
    std::string pointer = "/" + place;
    for (char& c : pointer) {
        if (c == '.' || c == '[') c = '/';
    }
    std::erase(pointer, ']');
    return found.value(Json::json_pointer(pointer), Json());
}

}  // namespace velactl
