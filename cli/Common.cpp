// What the commands share: clients, failures, input and output.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "cli/Commands.h"
#include "core/platform/Bytes.h"
#include "core/platform/Files.h"

namespace zephonctl {

zephon::Client Common::client(const std::string& url) const {
    zephon::Options options;
    options.timeout = std::chrono::milliseconds(std::llround(timeoutSeconds * 1000));
    return zephon::Client(url, options);
}

zephon::Client Common::onlyClient() const {
    if (urls.size() != 1)
        throw Failure{wrongUsage, "this command speaks to one service: give one --url"};
    return client(urls.front());
}

Failure failureOf(const zephon::Error& error, const std::string& url) {
    const std::string from = url.empty() ? std::string() : url + ": ";
    switch (error.code) {
        case zephon::ErrorCode::none:
            return {done, {}};
        case zephon::ErrorCode::badArgument:
            return {wrongUsage, from + error.message};
        case zephon::ErrorCode::connectFailed:
            return {unreachable, from + error.message +
                                     "\nIs the service running? Another address "
                                     "is given with --url or ZEPHON_URL."};
        case zephon::ErrorCode::timedOut:
            return {tooSlow, from + error.message};
        case zephon::ErrorCode::refused:
            return {refused, from + (error.word.empty() ? std::string() : error.word + ": ") +
                                 error.message};
        case zephon::ErrorCode::connectionLost:
        case zephon::ErrorCode::badReply:
        case zephon::ErrorCode::replyTooLarge:
            break;
    }
    return {brokenReply, from + error.message};
}

std::string readInput(const std::string& path) {
    if (path == "-")
        return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    const auto bytes = zepho::loadFileBytes(path);
    if (!bytes) throw Failure{wrongUsage, "cannot read " + path};
    return std::string(zepho::asText(*bytes));
}

void printJson(const Common& common, const std::string& url, std::string_view body) {
    if (common.urls.size() < 2)
        std::cout << body << std::endl;
    else
        std::cout << "{\"url\":\"" << url << "\",\"answer\":" << body << '}' << std::endl;
}

std::string fetch(zephon::Client& client, const std::string& url, const std::string& target) {
    const zephon::Reply reply = valueOf(client.request("GET", target), url);
    if (reply.status == 200) return std::string(reply.text());
    throw Failure{refused, url + ": HTTP status " + std::to_string(reply.status)};
}

std::string voiceId(zephon::Client& client, const std::string& url, const std::string& voice) {
    std::string found;
    bool isUnique = true;
    for (const zephon::Voice& one : valueOf(client.voices(), url)) {
        if (one.id == voice) return voice;
        if (one.display != voice) continue;
        isUnique = found.empty();
        found = one.id;
    }
    if (!isUnique)
        throw Failure{wrongUsage, url + ": several voices are named \"" + voice +
                                      "\"; give the id, as zephonctl voices lists it"};
    if (found.empty()) throw Failure{wrongUsage, url + ": no such voice: " + voice};
    return found;
}

void printHeading(const Common& common, const std::string& url) {
    if (common.urls.size() > 1 && !common.json) std::cout << url << ":\n";
}

void sleepSeconds(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(std::max(seconds, 0.01)));
}

}  // namespace zephonctl
