#include "core/models/DownloadVerdict.h"

namespace zepho {
namespace {

constexpr std::int64_t smallFile = 20LL << 20;
constexpr std::int64_t smallTolerance = 1LL << 20;
constexpr std::int64_t largeToleranceDivisor = 20;  // 5 %

}  // namespace

DownloadVerdict judgeDownload(std::int64_t actual, std::int64_t announced, std::int64_t estimate) {
    if (actual < 1) return DownloadVerdict::empty;
    // Where the server told a length, the estimate plays no part.
    if (announced >= 1)
        return actual == announced ? DownloadVerdict::passed : DownloadVerdict::incomplete;
    if (estimate < 1) return DownloadVerdict::passed;
    const std::int64_t difference = actual > estimate ? actual - estimate : estimate - actual;
    const std::int64_t tolerance =
        estimate < smallFile ? smallTolerance : estimate / largeToleranceDivisor;
    return difference <= tolerance ? DownloadVerdict::passed : DownloadVerdict::sizeMismatch;
}

}  // namespace zepho
