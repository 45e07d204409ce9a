#include "cli/Csv.h"

#include <algorithm>
#include <utility>

namespace zephonctl {
namespace {

class Reader {
public:
    explicit Reader(std::string_view text) : source(text) {
        constexpr std::string_view mark = "\xEF\xBB\xBF";
        if (source.substr(0, mark.size()) == mark) at = mark.size();
    }

    CsvTable table() {
        CsvTable result;
        while (at < source.size()) {
            if (takeLineEnd()) continue;
            CsvRow row;
            row.line = line;
            if (!readRow(row)) {
                result.fault = "line " + std::to_string(line) + ": " + fault;
                return result;
            }
            if (!result.rows.empty() && row.fields.size() != result.rows.front().fields.size()) {
                result.fault = "line " + std::to_string(row.line) + ": " +
                               std::to_string(row.fields.size()) + " fields instead of " +
                               std::to_string(result.rows.front().fields.size());
                return result;
            }
            result.rows.push_back(std::move(row));
        }
        return result;
    }

private:
    bool readRow(CsvRow& row) {
        for (;;) {
            if (!readField(row.fields.emplace_back())) return false;
            if (at == source.size() || takeLineEnd()) return true;
            if (source[at] != ',') {
                fault = "something stands behind a closing quote";
                return false;
            }
            ++at;
        }
    }
    bool readField(std::string& field) {
        if (at == source.size() || source[at] != '"') {
            const std::size_t end = std::min(source.find_first_of(",\r\n\"", at), source.size());
            field = source.substr(at, end - at);
            at = end;
            if (at < source.size() && source[at] == '"')
                fault = "a quote inside a field without quotes";
            return fault.empty();
        }
        const std::size_t begin = line;
        for (++at; at < source.size(); ++at) {
            if (source[at] == '"') {
                ++at;
                if (at == source.size() || source[at] != '"') return true;
            }
            if (source[at] == '\n') ++line;
            field += source[at];
        }
        line = begin;
        fault = "a quote is not closed";
        return false;
    }
    bool takeLineEnd() {
        std::size_t end = at;
        if (end < source.size() && source[end] == '\r') ++end;
        if (end < source.size() && source[end] == '\n') {
            at = end + 1;
        } else if (end > at) {
            at = end;  // "\r" alone, as old systems write it
        } else {
            return false;
        }
        ++line;
        return true;
    }

    std::string_view source;
    std::size_t at = 0;
    std::size_t line = 1;
    std::string fault;
};

}  // namespace

CsvTable readCsv(std::string_view text) {
    return Reader(text).table();
}

}  // namespace zephonctl
