// Byte buffers as the whole program passes them.
//
// Bytes is the growing buffer, ByteView a borrowed range, SharedBytes a finished buffer that nobody
// changes any more: a clip keeps one buffer from the file read to the socket write. SharedBytes may
// be copied and read from any thread; the bytes live as long as one copy does.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace zepho {

// Leaves elements of a fresh buffer unset: whoever resizes one is about to fill it.
template <class Value>
struct UninitializedAllocator : std::allocator<Value> {
    template <class Other>
    struct rebind {
        using other = UninitializedAllocator<Other>;
    };
    template <class Item>
    void construct(Item* place) noexcept {
        ::new (static_cast<void*>(place)) Item;
    }
    template <class Item, class... Args>
    void construct(Item* place, Args&&... args) {
        ::new (static_cast<void*>(place)) Item(std::forward<Args>(args)...);
    }
};

using Bytes = std::vector<std::uint8_t, UninitializedAllocator<std::uint8_t>>;
using ByteView = std::span<const std::uint8_t>;

inline std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// As a block: the vector's own insert() goes byte by byte with an allocator that is not the standard's.
inline void appendBytes(Bytes& target, ByteView more) {
    if (more.empty()) return;
    const std::size_t size = target.size();
    target.resize(size + more.size());
    std::memcpy(target.data() + size, more.data(), more.size());
}

inline void appendText(Bytes& target, std::string_view text) {
    appendBytes(target, asBytes(text));
}

inline Bytes toBytes(std::string_view text) {
    Bytes bytes;
    appendBytes(bytes, asBytes(text));
    return bytes;
}

class SharedBytes {
public:
    SharedBytes() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): a finished buffer is a SharedBytes.
    SharedBytes(Bytes bytes) {
        const auto made = std::make_shared<const Bytes>(std::move(bytes));
        held = {made, made->data()};
        count = made->size();
    }
    // `size` bytes that live as long as `memory`; `file`, if not -1, is an open file of these very
    // bytes, for whoever can pass them on without looking at them.
    SharedBytes(std::shared_ptr<const std::uint8_t> memory, std::size_t size, int file)
        : held(std::move(memory)), count(size), number(file) {}

    [[nodiscard]] const std::uint8_t* data() const { return held.get(); }
    [[nodiscard]] std::size_t size() const { return count; }
    [[nodiscard]] bool empty() const { return size() == 0; }
    [[nodiscard]] ByteView view() const { return {data(), size()}; }
    // NOLINTNEXTLINE(google-explicit-constructor): reads like the buffer itself.
    operator ByteView() const { return view(); }
    [[nodiscard]] int file() const { return number; }

private:
    std::shared_ptr<const std::uint8_t> held;
    std::size_t count = 0;
    int number = -1;
};

}  // namespace zepho
