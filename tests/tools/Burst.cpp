// Many clients at one moment: burst PORT COUNT REFUSALS
//
// Opens COUNT connections to 127.0.0.1, says "ready" and waits for a line on its standard input. Then
// it asks for a different line of text on each connection, as fast as one thread can, and times every
// answer from the end of its sending to its first byte. When REFUSALS answers have come (or three
// seconds are over) it tells "refused p99 longest sending" in milliseconds, the last being how long
// the sending took as a whole; and at the end of its patience, or when all are answered, how many were
// spoken and how many refused in all. One thread and requests made beforehand, so that the times tell
// of the server and not of a client that is busy with itself.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Steady = std::chrono::steady_clock;

struct Client {
    int socket = -1;
    std::string request;
    Steady::time_point sent;
    double milliseconds = 0;
    int status = 0;  // of its answer, -1 for something else
};

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

Client connected(int port, std::size_t number) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Client made;
    made.socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(made.socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("connect");
    ::fcntl(made.socket, F_SETFL, O_NONBLOCK);
    made.request = "GET /v1/tts?text=Line+" + std::to_string(number) + " HTTP/1.1\r\n\r\n";
    return made;
}

class Burst {
public:
    Burst(int port, std::size_t count) : events(::epoll_create1(EPOLL_CLOEXEC)) {
        for (std::size_t i = 0; i < count; ++i) {
            clients.push_back(connected(port, i));
            epoll_event wanted{EPOLLIN, {.u64 = i}};
            if (::epoll_ctl(events, EPOLL_CTL_ADD, clients[i].socket, &wanted) != 0)
                fail("epoll_ctl");
        }
    }

    // How long the sending took.
    double sendAll() {
        const Steady::time_point begin = Steady::now();
        for (Client& client : clients) {
            const auto size = static_cast<ssize_t>(client.request.size());
            if (::send(client.socket, client.request.data(), client.request.size(), MSG_NOSIGNAL) !=
                size)
                fail("send");
            client.sent = Steady::now();
            collect(0);
        }
        return since(begin);
    }

    void collectUntil(std::size_t wanted, std::chrono::milliseconds patience) {
        const Steady::time_point end = Steady::now() + patience;
        while (answered < wanted && Steady::now() < end) collect(50);
    }

    [[nodiscard]] std::vector<double> timesOf(int status) const {
        std::vector<double> times;
        for (const Client& client : clients)
            if (client.status == status) times.push_back(client.milliseconds);
        std::sort(times.begin(), times.end());
        return times;
    }

private:
    static double since(Steady::time_point begin) {
        return std::chrono::duration<double, std::milli>(Steady::now() - begin).count();
    }

    void collect(int milliseconds) {
        epoll_event come[64];
        const int count = ::epoll_wait(events, come, 64, milliseconds);
        for (int i = 0; i < count; ++i) {
            Client& client = clients[come[i].data.u64];
            client.milliseconds = since(client.sent);
            ::epoll_ctl(events, EPOLL_CTL_DEL, client.socket, nullptr);
            char head[13] = {};  // "HTTP/1.1 503"
            client.status = ::recv(client.socket, head, 12, 0) == 12 ? std::atoi(head + 9) : -1;
            ++answered;
        }
    }

    const int events;
    std::vector<Client> clients;
    std::size_t answered = 0;
};

}  // namespace

int main(int count, char** words) {
    if (count != 4) return 2;
    const auto clients = static_cast<std::size_t>(std::atoi(words[2]));
    Burst burst(std::atoi(words[1]), clients);
    std::cout << "ready" << std::endl;
    std::string line;
    std::getline(std::cin, line);
    const double sending = burst.sendAll();
    burst.collectUntil(static_cast<std::size_t>(std::atoi(words[3])), std::chrono::seconds(3));
    const std::vector<double> refused = burst.timesOf(503);
    if (refused.empty()) {
        std::cout << "0 0 0 " << sending << std::endl;
    } else {
        std::cout << refused.size() << ' ' << refused[(refused.size() - 1) * 99 / 100] << ' '
                  << refused.back() << ' ' << sending << std::endl;
    }
    burst.collectUntil(clients, std::chrono::seconds(60));
    std::cout << burst.timesOf(200).size() << ' ' << burst.timesOf(503).size() << std::endl;
}
