// Whether a finished download is the file: the only defence against a body that is something else.
// Pure; any thread.
#pragma once

#include <cstdint>

namespace zepho {

enum class DownloadVerdict {
    passed,
    empty,         // nothing has come
    incomplete,    // not what the server announced
    sizeMismatch,  // nothing was announced, and it is far from the estimate
};

// In bytes; `announced` and `estimate` are below 1 where they are not known.
[[nodiscard]] DownloadVerdict judgeDownload(std::int64_t actual, std::int64_t announced,
                                            std::int64_t estimate);

}  // namespace zepho
