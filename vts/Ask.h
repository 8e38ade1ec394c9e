#pragma once

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>

/**
 * Calls of operations whose status and result are compared as one text. Where a test fails on a
 * device, the text says what came:
 *
 *     ask(vela, &IVela::velaConfigureGet, 7, Values{})
 *         "ok { 4, 5 }"    the status and the result
 *         "-2 { 77 }"      an error; 77 was there before the call
 *     ask(composer, &IVelaComposerClient::createLayer)
 *         "ok"             there is no result; arguments that are left out are 0
 *     told(vela.registerCallback(1, nullptr))
 *         "unknown"        the service library is absent
 *
 * To try one by hand there, write such a line into a test of OperationsTest.cpp, or call the
 * operation with velactl.
 */
namespace vela::test {

/** "ok", "unknown" for the unknown error, or the service-specific code; else the description. */
inline std::string told(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return "ok";
    if (status.getExceptionCode() == EX_SERVICE_SPECIFIC) {
        return std::to_string(status.getServiceSpecificError());
    }
    return status.getStatus() == STATUS_UNKNOWN_ERROR ? "unknown" : status.getDescription();
}

template <typename T>
std::string shown(const T& value) {
    if constexpr (requires { value.toString(); }) {
        return value.toString();
    } else {
        return testing::PrintToString(value);
    }
}

/** A record each of whose fields is initialised by `initial`, which becomes any type. */
template <typename Record, typename Initial, typename... Fields>
Record recordOf(const Initial& initial, const Fields&... fields) {
    if constexpr (requires { Record{fields..., initial}; }) {
        return recordOf<Record>(initial, fields..., initial);
    } else {
        return Record{fields...};
    }
}

template <typename T>
T untouched();

struct Untouched {
    template <typename T>
    operator T() const {  // NOLINT(google-explicit-constructor): it initialises any field
        return untouched<T>();
    }
};

/** What ask() puts into an out-parameter beforehand: 77, once in a list, in each field. */
template <typename T>
T untouched() {
    if constexpr (std::is_aggregate_v<T>) {
        return recordOf<T>(Untouched());
    } else if constexpr (std::is_arithmetic_v<T>) {
        return static_cast<T>(77);
    } else if constexpr (requires { typename T::value_type; }) {
        return T(1, untouched<typename T::value_type>());
    } else {
        return {};
    }
}

template <typename Parameter, typename Value>
decltype(auto) passAs(Value& value) {
    if constexpr (std::is_pointer_v<Parameter>) {
        return &value;
    } else {
        return (value);
    }
}

template <typename Object, typename Operation, typename... Parameters, size_t... I>
std::string toldCall(Object& object, Operation operation,
                     std::tuple<std::remove_pointer_t<std::remove_cvref_t<Parameters>>...>& values,
                     std::index_sequence<I...>) {
    return told((object.*operation)(passAs<Parameters>(std::get<I>(values))...));
}

/**
 * Calls an operation and tells its status, followed by what is in its out-parameter, the last one,
 * if it has one: "ok", "-1 77". Arguments that are left out are default-constructed.
 */
template <typename Object, typename Interface, typename... Parameters, typename... Arguments>
std::string ask(Object& object, ndk::ScopedAStatus (Interface::*operation)(Parameters...),
                const Arguments&... arguments) {
    constexpr size_t kLast = sizeof...(Parameters) - 1;
    using Last = std::tuple_element_t<kLast, std::tuple<Parameters...>>;
    std::tuple<std::remove_pointer_t<std::remove_cvref_t<Parameters>>...> values;
    if constexpr (std::is_pointer_v<Last>) {
        std::get<kLast>(values) = untouched<std::remove_pointer_t<Last>>();
    }
    [&]<size_t... I>(std::index_sequence<I...>) {
        ((std::get<I>(values) = arguments), ...);
    }
    (std::index_sequence_for<Arguments...>());
    const std::string status = toldCall<Object, decltype(operation), Parameters...>(
            object, operation, values, std::index_sequence_for<Parameters...>());
    if constexpr (std::is_pointer_v<Last>) return status + ' ' + shown(std::get<kLast>(values));
    return status;
}

}  // namespace vela::test
