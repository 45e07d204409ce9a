// The commands that tell how a service is: health, selftest, stats, log.
#include <iomanip>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "cli/Commands.h"
#include "cli/LogTail.h"

namespace zephonctl {
namespace {

void printRow(const std::vector<std::string>& cells) {
    for (const std::string& cell : cells) std::cout << std::setw(9) << cell;
    std::cout << std::endl;
}

std::string fixed(double value, int digits) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(digits) << value;
    return out.str();
}

}  // namespace

int health(const Common& common) {
    int code = done;
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        const zephon::Health health = valueOf(client.health(), url);
        if (health.status != "ready") code = notInOrder;
        if (common.json) {
            printJson(common, url, fetch(client, url, "/v1/health"));
            continue;
        }
        printHeading(common, url);
        std::cout << "status     " << health.status << "\nversion    " << health.version
                  << "\nengine     " << health.engine << " ("
                  << (health.engineReady ? "ready" : "not ready")
                  << (health.placeholder ? ", placeholder audio" : "") << ")\n           "
                  << health.engineDetail << "\ncompute    " << health.compute << "\nvoices     "
                  << health.voices << '\n';
    }
    return code;
}

int selfTest(const Common& common, const zephon::Line& line) {
    int code = done;
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        const zephon::SelfTest test = valueOf(client.selfTest(line), url);
        if (!test.ok) code = notInOrder;
        if (common.json) {
            nlohmann::json checks = nlohmann::json::array();
            for (const zephon::SelfTest::Check& check : test.checks)
                checks.push_back(
                    {{"name", check.name}, {"ok", check.ok}, {"detail", check.detail}});
            printJson(
                common, url,
                nlohmann::json{
                    {"ok", test.ok}, {"endpoint", test.endpoint}, {"checks", std::move(checks)}}
                    .dump());
        } else {
            printHeading(common, url);
            std::cout << test.report;
        }
    }
    return code;
}

int stats(const Common& common, const StatsOptions& options) {
    const bool watches = options.watchSeconds > 0;
    std::vector<zephon::Client> clients;
    for (const std::string& url : common.urls) clients.push_back(common.client(url));
    for (long turn = 0; !watches || options.count == 0 || turn < options.count; ++turn) {
        if (turn > 0) sleepSeconds(options.watchSeconds);
        if (!common.json && turn % 20 == 0)
            printRow({"TOTAL", "FAILED", "HITS %", "CLIPS", "MB", "QUEUE", "PREBAKE", "BUSY",
                      "P50 ms", "P95 ms"});
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const std::string& url = common.urls[i];
            if (common.json) {
                printJson(common, url, fetch(clients[i], url, "/v1/stats"));
                continue;
            }
            const zephon::Stats now = valueOf(clients[i].stats(), url);
            printRow({std::to_string(now.total), std::to_string(now.failed),
                      fixed(now.cacheHitRate * 100, 1), std::to_string(now.cacheCount),
                      fixed(static_cast<double>(now.cacheBytes) / 1e6, 1),
                      std::to_string(now.queueDepth), std::to_string(now.prewarmPending),
                      now.busy ? "yes" : "no", fixed(now.p50Ms, 0), fixed(now.p95Ms, 0)});
        }
        if (!watches) break;
    }
    return done;
}

int log(const Common& common, const LogOptions& options) {
    zephon::Client client = common.onlyClient();
    std::vector<std::string> before;
    for (bool isFirst = true;; isFirst = false) {
        // As many lines as the service keeps, so that none is missed in between.
        std::vector<std::string> now = splitLines(
            valueOf(client.log(options.follow ? 2000 : options.lines), common.urls.front()));
        std::size_t shown = knownLines(before, now);
        const auto wanted = static_cast<std::size_t>(options.lines);
        if (isFirst && now.size() > wanted) shown = now.size() - wanted;
        for (std::size_t i = shown; i < now.size(); ++i) {
            if (common.json)
                std::cout << nlohmann::json(now[i]).dump(-1, ' ', false,
                                                         nlohmann::json::error_handler_t::replace)
                          << '\n';
            else
                std::cout << now[i] << '\n';
        }
        std::cout << std::flush;
        if (!options.follow) return done;
        before = std::move(now);
        sleepSeconds(1);
    }
}

}  // namespace zephonctl
