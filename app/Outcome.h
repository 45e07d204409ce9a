// What became of something that ran in the background: its value, or a sentence for the person.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <type_traits>

#include "core/platform/Errors.h"

namespace zepho {

struct Nothing {};

template <class Value>
struct Outcome {
    std::optional<Value> value;
    std::string error;

    [[nodiscard]] bool ok() const { return value.has_value(); }
};

// Runs `work` and catches what it throws.
template <class Work>
auto attempt(Work&& work) {
    using Result = std::invoke_result_t<Work>;
    using Value = std::conditional_t<std::is_void_v<Result>, Nothing, Result>;
    Outcome<Value> outcome;
    try {
        if constexpr (std::is_void_v<Result>) {
            work();
            outcome.value.emplace();
        } else {
            outcome.value = work();
        }
    } catch (const std::exception& failure) {
        outcome.error = describeError(failure);
    }
    return outcome;
}

}  // namespace zepho
