#include "core/base/Base64.h"

#include <array>

namespace zepho {
namespace {

constexpr std::uint8_t invalid = 0xFF;

constexpr std::array<std::uint8_t, 256> valueOfDigit = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(invalid);
    const std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}();

}  // namespace

std::optional<Bytes> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    const std::size_t size = text.size() / 4 * 3 - padding;
    Bytes bytes(size);
    std::size_t out = 0;
    for (std::size_t in = 0; in < text.size(); in += 4) {
        std::uint32_t group = 0;
        std::uint8_t bad = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const bool padded = in + i >= text.size() - padding;
            const std::uint8_t value =
                padded ? std::uint8_t{0} : valueOfDigit[static_cast<std::uint8_t>(text[in + i])];
            bad |= value & 0xC0;
            group = group << 6 | value;
        }
        if (bad != 0) return std::nullopt;
        for (int shift = 16; shift >= 0 && out < size; shift -= 8)
            bytes[out++] = static_cast<std::uint8_t>(group >> shift);
    }
    return bytes;
}

}  // namespace zepho
