#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>

#include "host/codec/InterfaceCodec.h"

namespace codec {

/** What came of an operation. */
struct Outcome {
    std::string usageError;     // not empty: the arguments did not fit, nothing was called
    ndk::ScopedAStatus status;  // the service's answer
    Json value;                 // the result of an ok status; null for none
    std::shared_ptr<ndk::ICInterface> object;  // the result of an operation that makes one
};

/** Finds the object that JSON names; null with a reason in *error when there is none. */
using FindObject = std::function<std::shared_ptr<ndk::ICInterface>(const std::string& type,
                                                                   const Json&, std::string*)>;
/** The JSON that names an object, which may be null. */
using NameObject = std::function<Json(const std::string& type, AIBinder*)>;

/** One operation of an interface. */
struct Operation {
    std::string name;
    std::string result;  // "void" for none
    std::vector<Parameter> parameters;
    /** The arguments of a call as a JSON array; false when the parcel does not hold them. */
    std::function<bool(const AParcel*, const NameObject&, Json*)> readArguments;
    /** The result of a call whose status is ok, from behind that status. */
    std::function<bool(const AParcel*, const NameObject&, Json*)> readResult;

    /** "int commit(long display, int flags)". */
    [[nodiscard]] std::string signature() const {
        return result + " " + name + "(" + Parameter::list(parameters) + ")";
    }
};

/** An operation that can be called with JSON arguments. */
template <typename Interface>
struct CallableOperation : Operation {
    /** A call whose arguments have been read; it is made once. */
    using Call = std::function<Outcome(Interface&)>;

    /** Touches no service. Null, with a reason in *error, when the arguments do not fit. */
    std::function<Call(const std::vector<Json>&, const FindObject&, std::string* error)> bind;

    Outcome call(Interface& target, const std::vector<Json>& json, const FindObject& find) const {
        Outcome outcome;
        const Call made = bind(json, find, &outcome.usageError);
        return made ? made(target) : std::move(outcome);
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

template <typename T>
concept Object = std::convertible_to<T, std::shared_ptr<ndk::ICInterface>>;

template <typename P>
decltype(auto) pass(Storage<P>& value) {
    if constexpr (std::is_pointer_v<P>) {
        return &value;
    } else {
        return static_cast<const Storage<P>&>(value);
    }
}

template <typename T>
bool readValue(const Json& json, const FindObject& find, T* out, std::string* error) {
    if constexpr (Object<T>) {
        if (json.is_null()) return true;
        *out = std::static_pointer_cast<typename T::element_type>(
                find(Codec<T>::type(), json, error));
        return *out != nullptr;
    } else {
        return Codec<T>::read(json, out, error);
    }
}

/** Reads a value from a parcel as JSON; false when it is not there. */
template <typename T>
bool parcelToJson(const AParcel* parcel, const NameObject& name, Json* out) {
    if constexpr (Object<T>) {
        // Not as an interface: that would ask the object's process for its class.
        ndk::SpAIBinder binder;
        if (ndk::AParcel_readNullableStrongBinder(parcel, &binder) != STATUS_OK) return false;
        *out = name(Codec<T>::type(), binder.get());
    } else {
        T value{};
        if (ndk::AParcel_readData(parcel, &value) != STATUS_OK) return false;
        *out = Codec<T>::write(value);
    }
    return true;
}

/** Makes the operation of a method, whose arguments are named in declaration order. */
template <typename Interface, typename... P, typename... Names>
CallableOperation<Interface> op(const char* name, ndk::ScopedAStatus (Interface::*method)(P...),
                                Names... names) {
    constexpr size_t kInputs = sizeof...(P) - (kHasResult<P...> ? 1 : 0);
    static_assert(sizeof...(Names) == kInputs, "every argument has a name");
    using Values = std::tuple<Storage<P>...>;
    const std::vector<std::string> argumentNames{names...};

    CallableOperation<Interface> operation;
    operation.name = name;
    operation.result = "void";
    operation.readResult = [](const AParcel*, const NameObject&, Json*) { return true; };
    if constexpr (kHasResult<P...>) {
        using Result = std::tuple_element_t<kInputs, Values>;
        operation.result = Codec<Result>::type();
        operation.readResult = parcelToJson<Result>;
    }
    [&]<size_t... I>(std::index_sequence<I...>) {
        (operation.parameters.push_back(
                 {Codec<std::tuple_element_t<I, Values>>::type(), argumentNames[I]}),
         ...);
        operation.readArguments = [](const AParcel* in, const NameObject& nameObject, Json* out) {
            *out = Json::array();
            const auto take = [&]<typename T>(std::type_identity<T>) {
                Json value;
                if (!parcelToJson<T>(in, nameObject, &value)) return false;
                out->push_back(std::move(value));
                return true;
            };
            return (take(std::type_identity<std::tuple_element_t<I, Values>>()) && ...);
        };
    }
    (std::make_index_sequence<kInputs>());

    operation.bind = [method, argumentNames](
                             const std::vector<Json>& json, const FindObject& find,
                             std::string* error) -> typename CallableOperation<Interface>::Call {
        if (json.size() != kInputs) {
            *error = "takes " + std::to_string(kInputs) + " arguments, not " +
                     std::to_string(json.size());
            return nullptr;
        }
        const auto values = std::make_shared<Values>();
        const auto read = [&](size_t index, auto& value) {
            if (readValue(json[index], find, &value, error)) return true;
            *error = argumentNames[index] + ": " + *error;
            return false;
        };
        const bool ok = [&]<size_t... I>(std::index_sequence<I...>) {
            return (read(I, std::get<I>(*values)) && ...);
        }
        (std::make_index_sequence<kInputs>());
        if (!ok) return nullptr;
        return [method, values](Interface& target) {
            Outcome outcome;
            [&]<size_t... I>(std::index_sequence<I...>) {
                outcome.status = (target.*method)(pass<P>(std::get<I>(*values))...);
            }
            (std::index_sequence_for<P...>());
            if constexpr (kHasResult<P...>) {
                auto& result = std::get<kInputs>(*values);
                if (!outcome.status.isOk()) return outcome;
                if constexpr (Object<std::remove_reference_t<decltype(result)>>) {
                    using Made = typename std::remove_reference_t<decltype(result)>::element_type;
                    outcome.object = result;
                    outcome.value = Json{{"interface", Made::descriptor}};
                } else {
                    outcome.value = Codec<std::remove_reference_t<decltype(result)>>::write(result);
                }
            }
            return outcome;
        };
    };
    return operation;
}

}  // namespace codec
