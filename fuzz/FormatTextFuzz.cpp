// Formats of any form: none crashes or throws, and one that is put together of known placeholders
// comes out as the C library writes it.
#include <array>
#include <cstdio>
#include <string>

#include "core/diag/FormatText.h"
#include "core/platform/Require.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

template <class Value>
std::string byTheLibrary(const std::string& format, Value value) {
    std::array<char, 1024> room{};
    std::snprintf(room.data(), room.size(), format.c_str(), value);
    return room.data();
}

std::string withoutNul(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

// Three placeholders between any texts.
void checkKnown(fuzz::Slices& slices) {
    constexpr std::array<const char*, 4> integers{"%d", "%5d", "%-6d", "%03d"};
    constexpr std::array<const char*, 4> fractions{"%.2f", "%.0f", "%8.1f", "%f"};
    constexpr std::array<const char*, 3> texts{"%@", "%s", "%-9s"};
    const std::string integer = integers[slices.byte() % integers.size()];
    const std::string fraction = fractions[slices.byte() % fractions.size()];
    const std::string text = texts[slices.byte() % texts.size()];
    const int first = slices.byte() * 1000 - 128000;
    const double second = (slices.byte() - 128) / 8.0;
    const std::string third = withoutNul(slices.text());
    std::string lead(slices.text());
    std::erase(lead, '%');
    const std::string inC = text == "%@" ? "%s" : text;
    // The width of a text counts characters here, and bytes in C.
    for (const char c : third)
        if (static_cast<unsigned char>(c) >= 0x80 && inC != "%s") return;
    const std::string expected = lead + byTheLibrary(integer, first) + lead + "%" +
                                 byTheLibrary(fraction, second) + lead +
                                 byTheLibrary(inC, third.c_str());
    const std::string got =
        formatText(lead + integer + lead + "%%" + fraction + lead + text, first, second, third);
    require(got == expected, "not what the C library writes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Slices slices(data, size);
    checkKnown(slices);
    const std::string text(slices.text());
    const std::string format(asText(slices.rest()));
    (void)formatText(format);
    (void)formatText(format, 42, text, 2.5);
    (void)formatText(format, text, -1, text, std::int64_t{1} << 62);
    if (format.find('%') == std::string::npos)
        require(formatText(format, text) == format, "a text without placeholders changed");
    return 0;
}
