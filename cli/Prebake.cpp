// zephonctl prebake: a table of lines into the cache, with a progress bar until all are there.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <iostream>
#include <locale>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "cli/Commands.h"
#include "cli/Csv.h"
#include "core/platform/Clock.h"
#include "core/platform/Terminal.h"

namespace zephonctl {
namespace {

struct TableLine {
    std::size_t row = 0;  // of the file
    zephon::Line line;
};

struct FailedLine {
    std::size_t row = 0;
    std::string text;
    zephon::Error error;
};

template <class Number>
bool readNumber(const std::string& text, Number& number) {
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    return (in >> number) && in.peek() == std::istringstream::traits_type::eof();
}

// Puts a field into its place; false where it cannot be read.
using Setter = std::function<bool(zephon::Line&, const std::string&)>;

const std::map<std::string, Setter>& columns() {
    const auto text = [](std::string zephon::Line::*field) {
        return [field](zephon::Line& line, const std::string& value) {
            line.*field = value;
            return true;
        };
    };
    const auto number = [](auto zephon::Line::*field) {
        return [field](zephon::Line& line, const std::string& value) {
            return readNumber(value, line.*field);
        };
    };
    static const std::map<std::string, Setter> table = {
        {"text", text(&zephon::Line::text)},
        {"voice", text(&zephon::Line::voice)},
        {"airline", text(&zephon::Line::airline)},
        {"language", text(&zephon::Line::language)},
        {"gender", text(&zephon::Line::gender)},
        {"style", text(&zephon::Line::style)},
        {"speed", number(&zephon::Line::speed)},
        {"sample_rate", number(&zephon::Line::sampleRate)},
        {"seed", number(&zephon::Line::seed)},
    };
    return table;
}

std::vector<TableLine> readLines(const PrebakeOptions& options) {
    const CsvTable table = readCsv(readInput(options.file));
    const auto wrong = [&](const std::string& what) {
        return Failure{wrongUsage, options.file + ": " + what};
    };
    if (!table.fault.empty()) throw wrong(table.fault);
    if (table.rows.empty()) throw wrong("no header row");
    const std::vector<std::string>& header = table.rows.front().fields;
    for (const std::string& name : header)
        if (columns().find(name) == columns().end())
            throw wrong("unknown column \"" + name +
                        "\"; known are text, airline, language, gender, voice, style, speed, "
                        "sample_rate and seed");
    if (std::find(header.begin(), header.end(), "text") == header.end())
        throw wrong("the header row names no column \"text\"");
    std::vector<TableLine> lines;
    for (std::size_t i = 1; i < table.rows.size(); ++i) {
        TableLine entry{table.rows[i].line, options.preset};
        for (std::size_t k = 0; k < header.size(); ++k) {
            const std::string& value = table.rows[i].fields[k];
            if (!value.empty() && !columns().at(header[k])(entry.line, value))
                throw wrong("line " + std::to_string(entry.row) + ": " + header[k] +
                            " is no number: " + value);
        }
        lines.push_back(std::move(entry));
    }
    return lines;
}

// A bar that is redrawn on a terminal, and a line now and then elsewhere.
class Progress {
public:
    Progress(std::size_t lineCount, bool isSilent)
        : total(std::max<std::size_t>(lineCount, 1)), silent(isSilent) {}

    // `isStep` is something else than more of the same, and is told elsewhere than on a terminal, too.
    void show(std::size_t ready, const std::string& what, bool isStep = false) {
        if (silent) return;
        ready = std::min(ready, total);
        constexpr std::size_t width = 30;
        const std::size_t filled = ready * width / total;
        const std::string text = "[" + std::string(filled, '#') + std::string(width - filled, '.') +
                                 "] " + std::to_string(ready) + "/" + std::to_string(total) + " " +
                                 what;
        const std::size_t tenth = ready * 10 / total;
        if (text == shown || (!redraws && !isStep && tenth == shownTenth)) return;
        shownTenth = tenth;
        const std::size_t cleared = text.size() < shown.size() ? shown.size() - text.size() : 0;
        shown = text;
        if (redraws)
            std::cerr << '\r' << text << std::string(cleared, ' ') << std::flush;
        else
            std::cerr << text << std::endl;
    }
    void finish() const {
        if (redraws && !silent) std::cerr << '\n';
    }

private:
    const std::size_t total;
    const bool silent;
    const bool redraws = zepho::isTerminal(stderr);
    std::size_t shownTenth = SIZE_MAX;
    std::string shown;
};

class Prebake {
public:
    Prebake(const Common& wishes, const PrebakeOptions& choices)
        : common(wishes),
          options(choices),
          url(wishes.urls.front()),
          lines(readLines(choices)),
          client(wishes.onlyClient()),
          progress(lines.size(), wishes.json) {}

    int run() {
        order();
        await();
        check();
        progress.finish();
        report();
        return failed.empty() ? done : notInOrder;
    }

private:
    void order() {
        for (std::size_t begin = 0; begin < lines.size(); begin += options.batch) {
            const std::size_t end = std::min(lines.size(), begin + options.batch);
            std::vector<zephon::Line> part;
            for (std::size_t i = begin; i < end; ++i) part.push_back(lines[i].line);
            const zephon::PrewarmCounts counts = valueOf(client.prewarm(part), url);
            already += static_cast<std::size_t>(counts.cached);
            empty += static_cast<std::size_t>(counts.skippedEmpty);
            queued += static_cast<std::size_t>(counts.queued);
        }
    }

    // Until no line waits any more. Others' lines count, too: the service does not tell them apart.
    void await() {
        std::vector<std::string> nodes = options.nodes;
        if (nodes.empty()) nodes.push_back(url);
        std::vector<zephon::Client> clients;
        clients.reserve(nodes.size());
        for (const std::string& node : nodes) clients.push_back(common.client(node));
        for (;;) {
            std::size_t pending = 0;
            for (std::size_t i = 0; i < nodes.size(); ++i)
                pending +=
                    static_cast<std::size_t>(valueOf(clients[i].stats(), nodes[i]).prewarmPending);
            progress.show(lines.size() - std::min(queued, pending),
                          std::to_string(pending) + " pending");
            if (pending == 0) return;
            sleepSeconds(options.intervalSeconds);
        }
    }

    // Whether each line is a hit now. One that is not is spoken once more: that waits for a line that
    // is in the engine at this moment, and tells why another cannot be spoken.
    void check() {
        for (const TableLine& entry : lines) {
            const zephon::PrewarmCounts counts = valueOf(client.prewarm({entry.line}), url);
            if (counts.skippedEmpty > 0) continue;
            if (counts.cached == 0) {
                const auto clip = client.speak(entry.line);
                if (!clip && clip.error.code != zephon::ErrorCode::refused)
                    throw failureOf(clip.error, url);
                if (!clip) {
                    failed.push_back({entry.row, entry.line.text, clip.error});
                    continue;
                }
            }
            ++hits;
            progress.show(lines.size(), "checking");
        }
        progress.show(hits + empty, failed.empty() ? "done" : "done but for some", true);
    }

    void report() const {
        const double seconds = static_cast<double>(watch.elapsedMs()) / 1000;
        if (common.json) {
            nlohmann::json list = nlohmann::json::array();
            for (const FailedLine& one : failed)
                list.push_back({{"line", one.row},
                                {"text", one.text},
                                {"error", one.error.word},
                                {"message", one.error.message}});
            const nlohmann::json told = {{"lines", lines.size()},     {"hits", hits},
                                         {"already", already},        {"empty", empty},
                                         {"failed", std::move(list)}, {"seconds", seconds}};
            std::cout << told.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                      << std::endl;
            return;
        }
        std::cout << lines.size() << " lines: " << hits << " hits (" << already
                  << " were there before), " << failed.size() << " failed, " << empty
                  << " without text; " << seconds << " s\n";
        for (const FailedLine& one : failed)
            std::cout << options.file << ":" << one.row << ": " << one.error.word << ": "
                      << one.error.message << ": " << one.text << '\n';
    }

    const Common& common;
    const PrebakeOptions& options;
    const std::string url;
    const std::vector<TableLine> lines;
    const zepho::Stopwatch watch;
    zephon::Client client;
    Progress progress;
    std::size_t already = 0;
    std::size_t empty = 0;
    std::size_t queued = 0;
    std::size_t hits = 0;
    std::vector<FailedLine> failed;
};

}  // namespace

int prebake(const Common& common, const PrebakeOptions& options) {
    return Prebake(common, options).run();
}

}  // namespace zephonctl
