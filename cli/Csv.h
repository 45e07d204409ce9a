// Comma-separated values as RFC 4180 has them: quoted fields may hold commas, quotes and line breaks.
//
// Pure; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zephonctl {

struct CsvRow {
    std::size_t line = 0;  // where it begins in the file, from 1
    std::vector<std::string> fields;
};

struct CsvTable {
    std::vector<CsvRow> rows;
    std::string fault;  // why the text is none; the rows before it are there
};

// Lines may end with or without "\r"; a byte order mark and empty lines are skipped. Every row must
// have as many fields as the first.
[[nodiscard]] CsvTable readCsv(std::string_view text);

}  // namespace zephonctl
