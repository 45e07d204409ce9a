// The table reader and the log's tail.
#include <gtest/gtest.h>

#include "cli/Csv.h"
#include "cli/LogTail.h"

namespace zephonctl {
namespace {

// Rows as "line:field|field", so that a table can hold them.
std::vector<std::string> rowsOf(std::string_view text) {
    const CsvTable table = readCsv(text);
    std::vector<std::string> rows;
    for (const CsvRow& row : table.rows) {
        std::string& one = rows.emplace_back(std::to_string(row.line) + ":");
        for (std::size_t i = 0; i < row.fields.size(); ++i)
            one += (i == 0 ? "" : "|") + row.fields[i];
    }
    if (!table.fault.empty()) rows.push_back("! " + table.fault);
    return rows;
}

using Rows = std::vector<std::string>;

TEST(Csv, ReadsWhatTheStandardAllows) {
    EXPECT_EQ(rowsOf(""), Rows{});
    EXPECT_EQ(rowsOf("a,b\r\n1,2"), (Rows{"1:a|b", "2:1|2"}));
    EXPECT_EQ(rowsOf("\xEF\xBB\xBFtext\n请登机\n"), (Rows{"1:text", "2:请登机"}));
    EXPECT_EQ(rowsOf("a,\n,b\n,"), (Rows{"1:a|", "2:|b", "3:|"}));
    EXPECT_EQ(rowsOf("\"a,\"\"b\"\"\",\"\"\n"), (Rows{"1:a,\"b\"|"}));
    // A line break inside quotes counts for the lines behind it.
    EXPECT_EQ(rowsOf("\"a\r\nb\",c\n\nd,e"), (Rows{"1:a\r\nb|c", "4:d|e"}));
    EXPECT_EQ(rowsOf("a\rb\r"), (Rows{"1:a", "2:b"}));
}

TEST(Csv, TellsWhereItIsNone) {
    EXPECT_EQ(rowsOf("a,b\n1\n"), (Rows{"1:a|b", "! line 2: 1 fields instead of 2"}));
    EXPECT_EQ(rowsOf("a\n\n1,2\n"), (Rows{"1:a", "! line 3: 2 fields instead of 1"}));
    EXPECT_EQ(rowsOf("a\nb\"c\n"),
              (Rows{"1:a", "! line 2: a quote inside a field without quotes"}));
    EXPECT_EQ(rowsOf("\"a\"b\n"), (Rows{"! line 1: something stands behind a closing quote"}));
    EXPECT_EQ(rowsOf("a\n\"b\nc\nd"), (Rows{"1:a", "! line 2: a quote is not closed"}));
}

TEST(LogTail, ShowsEachLineOnce) {
    const Rows before = {"a", "b", "b", "c"};
    EXPECT_EQ(knownLines(before, {"a", "b", "b", "c", "d"}), 4U);
    EXPECT_EQ(knownLines(before, {"b", "c", "d"}), 2U);
    EXPECT_EQ(knownLines(before, {"c", "b", "c"}), 1U);
    // So much has come that nothing of the old is left, or the service began anew.
    EXPECT_EQ(knownLines(before, {"x", "y"}), 0U);
    EXPECT_EQ(knownLines(before, {}), 0U);
    EXPECT_EQ(splitLines("a\n\nb\n"), (Rows{"a", "", "b"}));
}

}  // namespace
}  // namespace zephonctl
