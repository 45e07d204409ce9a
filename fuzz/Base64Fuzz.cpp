// Any bytes as Base64: what is decoded encodes to the same text, and any bytes survive the way there
// and back. The encoder here is the slow and obvious one.
#include <string>

#include "core/base/Base64.h"
#include "core/platform/Require.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

std::string encoded(ByteView bytes) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const auto byte = [&](std::size_t i) {
            return at + i < bytes.size() ? unsigned{bytes[at + i]} : 0U;
        };
        const unsigned group = byte(0) << 16 | byte(1) << 8 | byte(2);
        for (unsigned digit = 0; digit < 4; ++digit)
            text += at + digit > bytes.size() ? '=' : alphabet[group >> (18 - 6 * digit) & 63];
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView bytes(data, size);
    const auto there = decodeBase64(encoded(bytes));
    require(there && asText(*there) == asText(bytes), "bytes changed on the way");

    const std::string_view text = asText(bytes);
    const auto decoded = decodeBase64(text);
    if (!decoded) return 0;
    require(text.size() % 4 == 0, "an odd group");
    const std::string back = encoded(*decoded);
    require(back.size() == text.size(), "another length");
    // The last digit before the padding may carry bits that stand for nothing.
    const std::size_t padding = text.size() - std::min(text.find('='), text.size());
    const std::size_t certain = text.size() - (padding > 0 ? padding + 1 : 0);
    require(back.substr(0, certain) == text.substr(0, certain), "another text");
    return 0;
}
