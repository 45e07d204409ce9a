// One setting: a value that any thread may read while one writer replaces it.
//
// Reads like its value and is assigned like it; a reader sees the old or the new value, never a
// mixture. It remembers the value it was made with as its default.
#pragma once

#include <atomic>
#include <mutex>
#include <type_traits>
#include <utility>

namespace zepho {

template <class Value>
class Setting {
public:
    explicit Setting(Value byDefault) : defaultValue(byDefault), value(std::move(byDefault)) {}
    Setting(const Setting&) = delete;

    [[nodiscard]] Value get() const {
        if constexpr (isAtomic) {
            return value.load(std::memory_order_relaxed);
        } else {
            const std::lock_guard guard(lock);
            return value;
        }
    }
    void set(Value next) {
        if constexpr (isAtomic) {
            value.store(next, std::memory_order_relaxed);
        } else {
            const std::lock_guard guard(lock);
            value = std::move(next);
        }
    }
    void reset() { set(defaultValue); }

    operator Value() const { return get(); }  // NOLINT: reads like its value
    Setting& operator=(Value next) {
        set(std::move(next));
        return *this;
    }
    Setting& operator=(const Setting&) = delete;

private:
    static constexpr bool isAtomic = std::is_trivially_copyable_v<Value>;

    const Value defaultValue;
    mutable std::mutex lock;  // guards a value that is no atomic
    std::conditional_t<isAtomic, std::atomic<Value>, Value> value;
};

}  // namespace zepho
