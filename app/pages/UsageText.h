// The text of the service page that tells how clients reach the service: commands to copy into a shell.
#pragma once

#include <string>
#include <vector>

namespace zepho {

// In the interface language. `baseUrl` stands in where there is no endpoint.
[[nodiscard]] std::string usageText(const std::vector<std::string>& endpoints,
                                    const std::string& bindAddress, const std::string& baseUrl);

}  // namespace zepho
