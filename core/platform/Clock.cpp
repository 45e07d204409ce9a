#include "core/platform/Clock.h"

#include <array>
#include <cstdio>

namespace zepho {
namespace {

// Takes fixed pieces off the front of a text and remembers whether all of them fitted.
class PieceReader {
public:
    explicit PieceReader(std::string_view text) : rest(text) {}

    int number(std::size_t digits) {
        if (rest.size() < digits) return fail();
        int value = 0;
        for (const char c : rest.substr(0, digits)) {
            if (c < '0' || c > '9') return fail();
            value = value * 10 + (c - '0');
        }
        rest.remove_prefix(digits);
        return value;
    }

    int numberUpTo(int highest) {
        const int value = number(2);
        return value <= highest ? value : fail();
    }

    void letter(char expected) {
        if (rest.starts_with(expected))
            rest.remove_prefix(1);
        else
            fail();
    }

    // What stands before the offset from universal time: +1 or -1, or 0 for a "Z".
    int sign() {
        const char c = rest.empty() ? '\0' : rest.front();
        if (c != 'Z' && c != '+' && c != '-') return fail();
        rest.remove_prefix(1);
        return c == 'Z' ? 0 : (c == '+' ? 1 : -1);
    }

    [[nodiscard]] bool allFitted() const { return fitted && rest.empty(); }

private:
    int fail() {
        fitted = false;
        return 0;
    }

    std::string_view rest;
    bool fitted = true;
};

}  // namespace

std::string formatIso8601(WallTime time) {
    using namespace std::chrono;
    const auto seconds = floor<std::chrono::seconds>(time);
    const auto day = floor<days>(seconds);
    const year_month_day date(day);
    const hh_mm_ss clock(seconds - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

std::optional<WallTime> parseIso8601(std::string_view text) {
    using namespace std::chrono;
    PieceReader reader(text);
    const year y(reader.number(4));
    reader.letter('-');
    const month m(static_cast<unsigned>(reader.number(2)));
    reader.letter('-');
    const day d(static_cast<unsigned>(reader.number(2)));
    reader.letter('T');
    const int hour = reader.numberUpTo(23);
    reader.letter(':');
    const int minute = reader.numberUpTo(59);
    reader.letter(':');
    const int second = reader.numberUpTo(59);
    const int sign = reader.sign();
    minutes offset{0};
    if (sign != 0) {
        const hours whole(reader.numberUpTo(23));
        reader.letter(':');
        offset = sign * (whole + minutes(reader.numberUpTo(59)));
    }
    const year_month_day date(y, m, d);
    if (!reader.allFitted() || !date.ok()) return std::nullopt;

    const sys_seconds moment =
        sys_days(date) + hours(hour) + minutes(minute) + seconds(second) - offset;
    // WallTime counts in smaller units and so reaches only some centuries from 1970.
    if (moment < ceil<seconds>(WallTime::min()) || moment > floor<seconds>(WallTime::max()))
        return std::nullopt;
    return WallTime(moment);
}

}  // namespace zepho
