#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>

#include "host/velactl/Codec.h"

namespace velactl {

/** What came of an operation. */
struct Outcome {
    std::string usageError;     // not empty: the arguments did not fit, nothing was called
    ndk::ScopedAStatus status;  // the service's answer
    Json value;                 // the result of an ok status; null for none
};

struct Parameter {
    std::string type;
    std::string name;
};

/** One operation of an interface, callable with JSON arguments. */
template <typename Interface>
struct Operation {
    std::string name;
    std::string result;  // "void" for none
    std::vector<Parameter> parameters;
    std::function<Outcome(Interface&, const std::vector<Json>&)> call;

    /** "int commit(long display, int flags)". */
    [[nodiscard]] std::string signature() const {
        std::string text;
        for (const Parameter& parameter : parameters) {
            text += (text.empty() ? "" : ", ") + parameter.type + " " + parameter.name;
        }
        return result + " " + name + "(" + text + ")";
    }
};

/** The last parameter of a method with a result is the pointer that receives it. */
template <typename... P>
inline constexpr bool kHasResult = false;
template <typename First, typename... P>
inline constexpr bool kHasResult<First, P...> =
        std::is_pointer_v<std::tuple_element_t<sizeof...(P), std::tuple<First, P...>>>;

/** The value that a parameter needs while the method runs. */
template <typename P>
using Storage = std::remove_cvref_t<std::remove_pointer_t<P>>;

template <typename P>
decltype(auto) pass(Storage<P>& value) {
    if constexpr (std::is_pointer_v<P>) {
        return &value;
    } else {
        return static_cast<const Storage<P>&>(value);
    }
}

/** Makes the operation of a method, whose arguments are named in declaration order. */
template <typename Interface, typename... P, typename... Names>
Operation<Interface> op(const char* name, ndk::ScopedAStatus (Interface::*method)(P...),
                        Names... names) {
    constexpr size_t kInputs = sizeof...(P) - (kHasResult<P...> ? 1 : 0);
    static_assert(sizeof...(Names) == kInputs, "every argument has a name");
    using Values = std::tuple<Storage<P>...>;

    Operation<Interface> operation{.name = name, .result = "void", .parameters = {}, .call = {}};
    if constexpr (kHasResult<P...>) {
        operation.result = Codec<std::tuple_element_t<kInputs, Values>>::type();
    }
    const std::vector<std::string> argumentNames{names...};
    [&]<size_t... I>(std::index_sequence<I...>) {
        (operation.parameters.push_back(
                 {Codec<std::tuple_element_t<I, Values>>::type(), argumentNames[I]}),
         ...);
    }
    (std::make_index_sequence<kInputs>());

    operation.call = [method, argumentNames](Interface& target, const std::vector<Json>& json) {
        Outcome outcome;
        if (json.size() != kInputs) {
            outcome.usageError = "takes " + std::to_string(kInputs) + " arguments, not " +
                                 std::to_string(json.size());
            return outcome;
        }
        Values values{};
        const auto read = [&](size_t index, auto& value) {
            using Value = std::remove_reference_t<decltype(value)>;
            if (Codec<Value>::read(json[index], &value, &outcome.usageError)) return true;
            outcome.usageError = argumentNames[index] + ": " + outcome.usageError;
            return false;
        };
        const bool ok = [&]<size_t... I>(std::index_sequence<I...>) {
            return (read(I, std::get<I>(values)) && ...);
        }
        (std::make_index_sequence<kInputs>());
        if (!ok) return outcome;

        [&]<size_t... I>(std::index_sequence<I...>) {
            outcome.status = (target.*method)(pass<P>(std::get<I>(values))...);
        }
        (std::index_sequence_for<P...>());
        if constexpr (kHasResult<P...>) {
            using Result = std::tuple_element_t<kInputs, Values>;
            if (outcome.status.isOk()) {
                outcome.value = Codec<Result>::write(std::get<kInputs>(values));
            }
        }
        return outcome;
    };
    return operation;
}

}  // namespace velactl
