// Any bytes as index.json of the clip cache. No line leads out of the directory, the quick reader and
// the full one agree, and what is read is written and read again the same.
#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "core/platform/Files.h"
#include "core/platform/Require.h"
#include "core/store/CacheIndex.h"
#include "core/store/CacheIndexReader.h"
#include "fuzz/ScratchFile.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;
using Records = std::vector<CacheRecordPointer>;

auto fieldsOf(const CacheRecord& record) {
    return std::make_tuple(record.key, record.fileName, record.voiceId, record.text,
                           record.language, std::round(static_cast<double>(record.speed) * 1000),
                           record.sampleRate, record.durationMs, record.bytes);
}

bool same(Records left, Records right) {
    const auto before = [](const CacheRecordPointer& one, const CacheRecordPointer& other) {
        return fieldsOf(*one) < fieldsOf(*other);
    };
    std::sort(left.begin(), left.end(), before);
    std::sort(right.begin(), right.end(), before);
    return std::equal(
        left.begin(), left.end(), right.begin(), right.end(),
        [](const auto& one, const auto& other) { return fieldsOf(*one) == fieldsOf(*other); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::ScratchDirectory directory;
    const std::string text(asText({data, size}));
    const auto read = readIndexText(text);
    // A blank in front is the same JSON, and not our own form.
    const auto inFull = readIndexText(" " + text);
    if (!text.starts_with("\xEF\xBB\xBF"))
        require(read.has_value() == inFull.has_value(), "the readers differ on whether it is JSON");
    if (!read) return 0;
    if (inFull) require(same(*read, *inFull), "the readers differ");
    for (const CacheRecordPointer& record : *read) {
        require(!record->fileName.empty() && record->fileName.find('/') == std::string::npos &&
                    record->fileName != "..",
                "another directory");
        require(record->bytes >= 0 && record->durationMs >= 0 && record->sampleRate >= 0,
                "a number below 0");
        require(std::fabs(static_cast<double>(record->speed)) <= indexSpeedLimit, "no speed");
    }
    const std::string path = directory.file("index.json");
    saveCacheIndex(path, *read);
    const auto again = loadCacheIndex(path);
    require(again.has_value(), "our own index does not read");
    require(same(*again, *read), "a line changed on the way");
    return 0;
}
