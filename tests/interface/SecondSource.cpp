// Another source file of a program that uses the client.
#include "zephon_client.h"

std::string healthOf(const std::string& url);

std::string healthOf(const std::string& url) {
    return zephon::Client(url).health().value.status;
}
