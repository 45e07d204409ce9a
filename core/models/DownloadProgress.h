// One report of a running download: a plain value, and how it is put into words.
#pragma once

#include <cstdint>
#include <string>

namespace zepho {

enum class DownloadStage { idle, connecting, downloading, verifying, done, failed, cancelled };

struct DownloadProgress {
    DownloadStage stage = DownloadStage::idle;
    std::string fileName;
    std::int64_t received = 0;  // bytes, those of earlier attempts included
    std::int64_t total = 0;     // bytes; 0 or less: not known
    double bytesPerSec = 0;     // average of this attempt
    std::string error;          // the reason, when failed

    // 0 to 100.
    [[nodiscard]] double percent() const;
    // 0 when it cannot be told.
    [[nodiscard]] std::int64_t etaSeconds() const;
    // One line in the current interface language.
    [[nodiscard]] std::string describe() const;
};

}  // namespace zepho
