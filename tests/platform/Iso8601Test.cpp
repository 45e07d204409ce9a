#include <gtest/gtest.h>

#include "core/platform/Clock.h"

namespace zepho {
namespace {

WallTime at(std::int64_t seconds) {
    return WallTime(std::chrono::seconds(seconds));
}

TEST(Iso8601, ParsesItsOwnFormAndOffsetsAndRefusesTheRest) {
    EXPECT_EQ(formatIso8601(at(0)), "1970-01-01T00:00:00Z");
    EXPECT_EQ(formatIso8601(at(1709210096) + std::chrono::milliseconds(999)),
              "2024-02-29T12:34:56Z");
    EXPECT_EQ(formatIso8601(at(0) - std::chrono::nanoseconds(1)), "1969-12-31T23:59:59Z");
    for (const WallTime edge : {WallTime::min() + std::chrono::seconds(1), WallTime::max()}) {
        const auto back = parseIso8601(formatIso8601(edge));
        ASSERT_TRUE(back) << formatIso8601(edge);
        EXPECT_EQ(*back, std::chrono::floor<std::chrono::seconds>(edge));
    }
    EXPECT_EQ(parseIso8601("2024-02-29T20:34:56+08:00"), at(1709210096));
    EXPECT_EQ(parseIso8601("2024-02-29T00:04:56-12:30"), at(1709210096));
    EXPECT_EQ(parseIso8601("1969-12-31T23:59:59Z"), at(-1));
    // Each an instant but for one part that the form does not allow.
    const std::string day = "2024-02-29T";
    for (const char* time :
         {"12:34:56", "12:34:56z", "12:34:56Z ", "12:34:56.5Z", "12:34:56+0800", "12:34:56+24:00",
          "12:34:56+08:60", "24:00:00Z", "12:60:00Z", "12:34:60Z"})
        EXPECT_FALSE(parseIso8601(day + time)) << time;
    for (const char* date : {"", "2023-02-29T", "2024-13-01T", "2024-01-00T", "-024-01-01T",
                             "2024-+1-01T", "2024-02-29 ", "0001-01-01T", "9999-12-31T"})
        EXPECT_FALSE(parseIso8601(std::string(date) + "12:34:56Z")) << date;
}

}  // namespace
}  // namespace zepho
