// A request of the log as a command that repeats it.
#pragma once

#include <string>

#include "core/diag/AppLog.h"

namespace zepho {

// One line for a POSIX shell. The log keeps no sentences: `text` stands in the place of what was
// spoken. `baseUrl` has no slash at its end.
[[nodiscard]] std::string curlLine(const RequestLog& record, const std::string& baseUrl,
                                   const std::string& text);

}  // namespace zepho
