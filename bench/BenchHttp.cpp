// Serves fixed bodies from memory, for a load generator on the same machine:
//
//   bench-http [port]            prints its address; ends with its standard input
//   wrk -t1 -c8 -d5 --latency http://127.0.0.1:<port>/132k
//
// "/132k" and "/1m" are bodies of 132 KB and 1.06 MB, "/small" is a JSON object of a few bytes.
// Expected on two cores shared with the load generator, against a static file server with sendfile:
// as many answers of 132 KB, twice as many of 1.06 MB, nine tenths as many small ones as its fixed
// answer. That is tens of thousands of small answers and several gigabytes a second.
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "core/http/HttpServer.h"

namespace {

zepho::HttpResponse clip(const zepho::SharedBytes& body) {
    return {200, {{"Content-Type", "audio/wav"}}, body};
}

}  // namespace

int main(int argc, char** argv) {
    const zepho::SharedBytes mid{zepho::Bytes(132 * 1024, 'a')};
    const zepho::SharedBytes large{zepho::Bytes(1060 * 1024, 'b')};
    const auto server = std::make_shared<zepho::HttpServer>(
        "127.0.0.1", argc > 1 ? std::atoi(argv[1]) : 0, [&](const zepho::HttpRequest& request) {
            if (request.path == "/132k") return clip(mid);
            if (request.path == "/1m") return clip(large);
            return zepho::HttpResponse::json(200, zepho::Json{{"ok", true}, {"queue", 0}});
        });
    server->start();
    std::cout << server->endpoint() << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) continue;
    server->stop();
    return 0;
}
