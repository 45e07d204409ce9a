// What a server made with cpp-httplib gives: bodies from memory, for the comparison in scripts/bench.
//
//   bench-peer-httplib <port> <directory>    every file of the directory under its name, and "/json"
//
// One thread for each of the connections that are measured at the same time, or they would wait.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include <httplib.h>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::map<std::string, std::string> bodies;
    for (const auto& file : std::filesystem::directory_iterator(argv[2])) {
        std::ifstream in(file.path(), std::ios::binary);
        bodies["/" + file.path().filename().string()].assign(std::istreambuf_iterator<char>(in),
                                                             {});
    }
    httplib::Server server;
    server.new_task_queue = [] { return new httplib::ThreadPool(96); };
    server.set_keep_alive_max_count(100000000);
    server.set_tcp_nodelay(true);
    server.Get("/json", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(R"({"status":"ready","voices":3})", "application/json");
    });
    server.Get("/.*", [&](const httplib::Request& request, httplib::Response& response) {
        const auto found = bodies.find(request.path);
        if (found == bodies.end()) return;
        const std::string& body = found->second;
        response.set_content_provider(
            body.size(), "audio/wav",
            [&body](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                return sink.write(body.data() + offset, length);
            });
    });
    return server.listen("127.0.0.1", std::atoi(argv[1])) ? 0 : 1;
}
