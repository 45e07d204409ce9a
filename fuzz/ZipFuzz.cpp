// Any bytes as a zip archive. What is read stays within its bounds and its budget, and packed again
// by our writer it reads back the same.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "core/pack/ZipFormat.h"
#include "core/pack/ZipReader.h"
#include "core/pack/ZipWriter.h"

namespace {

using namespace zepho;

void check(bool holds) {
    if (!holds) std::abort();
}

std::optional<Bytes> readWithin(const ZipReader& archive, const std::string& name,
                                std::size_t archiveSize, std::uint64_t& budget) {
    const std::uint64_t before = budget;
    try {
        Bytes content = archive.read(name, budget);
        check(budget <= before - content.size());
        // DEFLATE cannot do better than 258 bytes in two bits.
        check(content.size() <= 1032 * archiveSize);
        return content;
    } catch (const ZipError& error) {
        check(budget <= before);
        check(error.kind == ZipError::Kind::corrupt);
        return std::nullopt;
    }
}

std::optional<ZipReader> opened(ByteView data) {
    try {
        return ZipReader(Bytes(data.begin(), data.end()));
    } catch (const ZipError&) {
        return std::nullopt;
    }
}

}  // namespace

// An error that leaves this function is a crash: our own archives have none.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<ZipReader> archive = opened({data, size});
    if (!archive) return 0;
    const std::vector<std::string> names = archive->names();
    ZipWriter writer;
    std::vector<ZipEntry> contents;
    std::uint64_t budget = std::uint64_t{8} << 20;
    for (std::size_t at = 0; at < names.size(); ++at) {
        check(at == 0 || names[at - 1] < names[at]);
        check(archive->contains(names[at]));
        // A repaired name may have grown beyond what the format's 16 bits hold.
        if (names[at].size() > 0xFFFF) continue;
        if (auto content = readWithin(*archive, names[at], size, budget)) {
            writer.add(names[at], *content);
            contents.push_back({names[at], std::move(*content)});
        }
    }
    const ZipReader again(writer.finish());
    check(again.names().size() == contents.size());
    for (const ZipEntry& entry : contents) check(again.read(entry.name) == entry.data);
    again.refuseBombs(ZipReader::maxInflated);
    try {
        archive->refuseBombs(ZipReader::maxInflated);
    } catch (const ZipError& error) {
        check(error.kind == ZipError::Kind::corrupt);
    }
    return 0;
}
