#include <gtest/gtest.h>

#include "core/platform/Clock.h"

namespace zepho {
namespace {

WallTime at(std::int64_t seconds) {
    return WallTime(std::chrono::seconds(seconds));
}

TEST(Iso8601, FormatsWholeSecondsOfUniversalTime) {
    EXPECT_EQ(formatIso8601(at(0)), "1970-01-01T00:00:00Z");
    EXPECT_EQ(formatIso8601(at(1709210096) + std::chrono::milliseconds(999)),
              "2024-02-29T12:34:56Z");
    EXPECT_EQ(formatIso8601(at(0) - std::chrono::nanoseconds(1)), "1969-12-31T23:59:59Z");
    for (const WallTime edge : {WallTime::min() + std::chrono::seconds(1), WallTime::max()}) {
        const auto back = parseIso8601(formatIso8601(edge));
        ASSERT_TRUE(back) << formatIso8601(edge);
        EXPECT_EQ(*back, std::chrono::floor<std::chrono::seconds>(edge));
    }
}

TEST(Iso8601, ParsesOffsets) {
    EXPECT_EQ(parseIso8601("2024-02-29T12:34:56Z"), at(1709210096));
    EXPECT_EQ(parseIso8601("2024-02-29T20:34:56+08:00"), at(1709210096));
    EXPECT_EQ(parseIso8601("2024-02-29T00:04:56-12:30"), at(1709210096));
    EXPECT_EQ(parseIso8601("1969-12-31T23:59:59Z"), at(-1));
}

TEST(Iso8601, RefusesEverythingElse) {
    for (const char* text : {"",
                             "Z",
                             "2024-02-29",
                             "2024-02-29T12:34:56",
                             "2024-02-29T12:34:56z",
                             "2024-02-29 12:34:56Z",
                             "2024-02-29T12:34:56Z ",
                             " 2024-02-29T12:34:56Z",
                             "2024-02-29T12:34:56.5Z",
                             "2024-02-29T12:34:56+0800",
                             "2024-02-29T12:34:56+08",
                             "2024-02-29T12:34:56+24:00",
                             "2024-02-29T12:34:56+08:60",
                             "2024-02-29T24:00:00Z",
                             "2024-02-29T12:60:00Z",
                             "2024-02-29T12:34:60Z",
                             "2023-02-29T12:34:56Z",
                             "2024-13-01T12:34:56Z",
                             "2024-00-01T12:34:56Z",
                             "2024-01-00T12:34:56Z",
                             "-024-01-01T12:34:56Z",
                             "2024-+1-01T12:34:56Z",
                             "24-01-01T12:34:56Z",
                             "0001-01-01T00:00:00Z",
                             "9999-12-31T23:59:59Z"})
        EXPECT_FALSE(parseIso8601(text)) << text;
}

}  // namespace
}  // namespace zepho
