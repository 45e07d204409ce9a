#include "core/models/DownloadProgress.h"

#include <algorithm>

#include "core/diag/Language.h"
#include "core/models/ModelCatalog.h"

namespace zepho {
namespace {

// Beyond every file, and safe to turn into an integer.
constexpr double countLimit = 9e18;

std::int64_t wholeNumber(double value) {
    return static_cast<std::int64_t>(std::clamp(value, -countLimit, countLimit));
}

}  // namespace

double DownloadProgress::percent() const {
    if (total < 1) return 0;
    return std::clamp(static_cast<double>(received) / static_cast<double>(total) * 100, 0.0, 100.0);
}

std::int64_t DownloadProgress::etaSeconds() const {
    if (bytesPerSec < 1 || received >= total) return 0;
    return wholeNumber(static_cast<double>(total - received) / bytesPerSec);
}

std::string DownloadProgress::describe() const {
    switch (stage) {
        case DownloadStage::idle:
            return T("空闲");
        case DownloadStage::connecting:
            return fileName + T(" —— 正在连接…");
        case DownloadStage::downloading: {
            std::string line =
                formatText("%@  %@ / %@  (%.1f%%)  %@/s", fileName, humanSize(received),
                           humanSize(total), percent(), humanSize(wholeNumber(bytesPerSec)));
            if (const std::int64_t left = etaSeconds(); left >= 1)
                line += TF("  剩约 %d 分 %d 秒", left / 60, left % 60);
            return line;
        }
        case DownloadStage::verifying:
            return fileName + T(" —— 正在校验…");
        case DownloadStage::done:
            return fileName + T(" —— 完成");
        case DownloadStage::failed:
            return fileName + T(" —— 失败:") + error;
        case DownloadStage::cancelled:
            return fileName + T(" —— 已取消(下了一半的留着,下次接着下)");
    }
    return {};
}

}  // namespace zepho
