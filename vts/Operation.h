#pragma once

#include <fcntl.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "vts/Service.h"

/**
 * An operation is told once, with arguments that any service takes. The line
 *
 *     all["IVela_velaConfigureGet"] = operation(&IVela::velaConfigureGet, kResult, 2);
 *
 * (type 2, and no params, since they are left out) makes four tests. IVela_velaConfigureGet_
 *
 *     works      calls it with (2, {}): the answer begins with kResult.works
 *     extreme    puts each argument to each end of its type, then all of them: (0, {}), (2, {}),
 *                (0, {}), (-1, {}), (2, {0, -1, ...}), ...; the chip may refuse each of them
 *     refused    makes the calls of both, and is skipped unless the chip refuses one
 *     absent     is works, of a service without its library
 *
 * and _null, without the object, where an argument is a descriptor or an interface. A failure shows
 * the answer, and the call by its number, counted from 0:
 *
 *     unknown { 77 }
 *     to call 3
 *
 * in extreme is what (-1, {}) was answered. --gtest_filter='*_velaConfigureGet_extreme' runs that
 * test alone; to stop at the call, break in the method and let it pass three times.
 */
namespace vts {

/** A descriptor as an argument that can be copied: a file that each call opens; null is -1. */
struct File {
    const char* path = nullptr;

    // Implicit: ask() assigns it to a descriptor.
    operator ndk::ScopedFileDescriptor() const {  // NOLINT(google-explicit-constructor)
        return ndk::ScopedFileDescriptor(path == nullptr ? -1 : ::open(path, O_RDONLY | O_CLOEXEC));
    }
};

template <typename T>
std::vector<T> extremes();

/** Becomes the extreme of that number of the type that it initialises. */
struct Extreme {
    template <typename T>
    operator T() const {  // NOLINT(google-explicit-constructor)
        const std::vector<T> all = extremes<T>();
        return all[number % all.size()];
    }

    size_t number;
};

// What is long fits into a transaction, in a record of records too.
constexpr size_t kLongList = 50'000;
constexpr size_t kManyRecords = 1000;
constexpr size_t kLongText = 100'000;
constexpr size_t kMostExtremes = 5;

/** Legal values of a type at its ends; none of an interface. */
template <typename T>
std::vector<T> extremes() {
    using Limits = std::numeric_limits<T>;
    if constexpr (std::is_same_v<T, bool>) {
        return {false, true};
    } else if constexpr (std::is_integral_v<T>) {
        return {0, static_cast<T>(-1), Limits::min(), Limits::max()};
    } else if constexpr (std::is_floating_point_v<T>) {
        return {-0.0f, Limits::lowest(), Limits::infinity(), Limits::quiet_NaN()};
    } else if constexpr (std::is_enum_v<T>) {
        return {T{0}, T{-1}, T{INT32_MIN}, T{INT32_MAX}};
    } else if constexpr (std::is_same_v<T, std::string>) {
        return {"", std::string("a\0b", 3), std::string(kLongText, '\0')};
    } else if constexpr (std::is_same_v<T, File>) {
        return {File{"/dev/null"}, File{"/"}};
    } else if constexpr (requires { typename T::value_type; }) {
        const auto each = extremes<typename T::value_type>();
        constexpr bool kIsScalar = std::is_arithmetic_v<typename T::value_type>;
        return {{}, each, T(kIsScalar ? kLongList : kManyRecords, each.back())};
    } else if constexpr (std::is_aggregate_v<T>) {
        std::vector<T> records{{}};
        while (records.size() < kMostExtremes)
            records.push_back(vela::test::recordOf<T>(Extreme{records.size() - 1}));
        return records;
    } else {
        return {};
    }
}

/** The beginnings of an operation's answers, as ask() tells them. */
struct Form {
    std::string works;
    std::string refused;  // by the chip; nothing where that is not told
    std::string absent;   // the service library
};

using Call = std::function<std::string(const Service&)>;

/** What to call in each of the conditions in which a client may find it. */
struct Operation {
    Form form;
    std::map<std::string, std::vector<Call>> calls;
};

/** What is kept of a parameter: nothing of an out-parameter. */
template <typename P, typename T = std::remove_cvref_t<P>>
using Kept = std::conditional_t<
        std::is_pointer_v<P>, std::tuple<>,
        std::tuple<std::conditional_t<std::is_same_v<T, ndk::ScopedFileDescriptor>, File, T>>>;

/** Calls `use` with the place of each element, a constant. */
template <typename... T>
void forEachPlace(const std::tuple<T...>& /*tuple*/, const auto& use) {
    [&]<size_t... I>(std::index_sequence<I...>) {
        (use(std::integral_constant<size_t, I>()), ...);
    }
    (std::index_sequence_for<T...>());
}

/** Ordinary arguments that are left out are default-constructed. */
template <typename Interface, typename... Parameters, typename... Ordinary>
Operation operation(ScopedAStatus (Interface::*method)(Parameters...), const Form& form,
                    const Ordinary&... ordinary) {
    using Arguments = decltype(std::tuple_cat(std::declval<Kept<Parameters>>()...));
    const auto bind = [=](const Arguments& arguments) -> Call {
        return [=](const Service& service) {
            auto& object = *std::get<std::shared_ptr<Interface>>(service);
            return std::apply([&](auto&... each) { return ask(object, method, each...); },
                              arguments);
        };
    };
    Arguments arguments;
    forEachPlace(std::tie(ordinary...), [&](auto place) {
        std::get<place>(arguments) = std::get<place>(std::tie(ordinary...));
    });
    Operation made{.form = form, .calls = {{"works", {bind(arguments)}}}};
    auto& calls = made.calls;
    // Without the library no composer client can be made.
    if (std::is_same_v<Interface, IVela>) calls["absent"] = calls["works"];
    for (size_t number = 0; number < kMostExtremes; ++number) {
        Arguments all = arguments;
        forEachPlace(all, [&](auto place) {
            Arguments one = arguments;
            auto& argument = std::get<place>(one);
            const auto values = extremes<std::remove_reference_t<decltype(argument)>>();
            if (number >= values.size()) return;
            std::get<place>(all) = argument = values[number];
            calls["extreme"].push_back(bind(one));
        });
        if (calls.contains("extreme")) calls["extreme"].push_back(bind(all));
    }
    forEachPlace(arguments, [&](auto place) {
        auto& argument = std::get<place>(arguments);
        if constexpr (
                requires { argument.path; } || requires { argument.use_count(); }) {
            argument = {};
            calls["null"] = {bind(arguments)};
        }
    });
    if (!form.refused.empty()) {
        calls["refused"] = calls["extreme"];
        calls["refused"].push_back(calls["works"][0]);
    }
    return made;
}

}  // namespace vts
