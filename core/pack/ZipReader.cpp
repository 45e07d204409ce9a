#include "core/pack/ZipReader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "core/pack/Deflate.h"
#include "core/pack/ZipFormat.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// How far from the end of the file the end record may begin: its own size, the longest comment, and
// a byte of grace.
constexpr std::size_t endSearch = 65558;

SharedBytes loadArchive(const std::string& path) {
    std::optional<Bytes> content = loadFileBytes(path);
    if (!content) throw ZipError::notAZip();
    return std::move(*content);
}

std::optional<std::size_t> findEnd(ByteView bytes) {
    if (bytes.size() < zip::endSize) return std::nullopt;
    const std::size_t lowest = bytes.size() > endSearch ? bytes.size() - endSearch : 0;
    for (std::size_t at = bytes.size() - zip::endSize;; --at) {
        if (zip::get32(&bytes[at]) == zip::endSignature) return at;
        if (at == lowest) return std::nullopt;
    }
}

// Where the data of the entry begins whose local header is at `offset`. The lengths of the name and
// the extra field may differ from the directory's.
std::optional<std::uint64_t> dataStart(ByteView bytes, std::uint64_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < zip::localSize) return std::nullopt;
    const std::uint8_t* header = &bytes[offset];
    if (zip::get32(header) != zip::localSignature) return std::nullopt;
    return offset + zip::localSize + zip::get16(header + 26) + zip::get16(header + 28);
}

}  // namespace

ZipReader::ZipReader(SharedBytes archive) : bytes(std::move(archive)) {
    parseDirectory();
}

ZipReader::ZipReader(const std::string& path) : ZipReader(loadArchive(path)) {}

void ZipReader::parseDirectory() {
    const ByteView all = bytes;
    const std::optional<std::size_t> end = findEnd(all);
    if (!end) throw ZipError::notAZip();
    const std::size_t count = zip::get16(&all[*end + 10]);
    std::uint64_t at = zip::get32(&all[*end + 16]);
    for (std::size_t number = 0; number < count; ++number) {
        if (at > all.size() || all.size() - at < zip::directorySize ||
            zip::get32(&all[at]) != zip::directorySignature)
            throw ZipError::corrupt("bad central directory entry");
        const std::uint8_t* header = &all[at];
        const std::size_t nameLength = zip::get16(header + 28);
        if (all.size() - at - zip::directorySize < nameLength)
            throw ZipError::corrupt("truncated central directory");
        std::string name =
            replaceInvalidUtf8(asText(all.subspan(at + zip::directorySize, nameLength)));
        if (!name.ends_with('/'))
            index[std::move(name)] = {zip::get32(header + 42), zip::get16(header + 10),
                                      zip::get32(header + 20), zip::get32(header + 24)};
        at += zip::directorySize + nameLength + zip::get16(header + 30) + zip::get16(header + 32);
    }
}

std::vector<std::string> ZipReader::names() const {
    std::vector<std::string> result;
    result.reserve(index.size());
    for (const auto& [name, entry] : index) result.push_back(name);
    return result;
}

bool ZipReader::contains(std::string_view name) const {
    return index.contains(name);
}

Bytes ZipReader::read(std::string_view name) const {
    std::uint64_t budget = maxInflated;
    return read(name, budget);
}

Bytes ZipReader::read(std::string_view name, std::uint64_t& budget) const {
    const ByteView all = bytes;
    const std::string text(name);
    const auto found = index.find(name);
    if (found == index.end()) throw ZipError::corrupt("no entry " + text);
    const Entry& entry = found->second;
    const std::optional<std::uint64_t> start = dataStart(all, entry.offset);
    if (!start) throw ZipError::corrupt("bad local header for " + text);
    if (*start > all.size() || all.size() - *start < entry.csize)
        throw ZipError::corrupt("truncated data for " + text);
    const ByteView data = all.subspan(*start, entry.csize);
    if (entry.method == zip::deflated) return inflate(data, entry.usize, budget);
    if (entry.method != zip::stored)
        throw ZipError::corrupt("unsupported compression method " + std::to_string(entry.method) +
                                " for " + text);
    if (data.size() > budget) throw ZipError::corrupt("too much data for " + text);
    budget -= data.size();
    Bytes content(data.size());
    if (!data.empty()) std::memcpy(content.data(), data.data(), data.size());
    return content;
}

void ZipReader::refuseBombs(std::uint64_t maxTotal) const {
    const ByteView all = bytes;
    std::uint64_t total = 0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    for (const auto& [name, entry] : index) {
        total += std::max(entry.csize, entry.usize);
        if (total > maxTotal)
            throw ZipError::corrupt("the entries claim more than " +
                                    std::to_string(maxTotal >> 20) + " MB");
        // One that cannot be read anyway is left to read(), which tells more.
        const std::optional<std::uint64_t> start = dataStart(all, entry.offset);
        if (start && *start + entry.csize <= all.size())
            ranges.emplace_back(entry.offset, *start + entry.csize);
    }
    std::sort(ranges.begin(), ranges.end());
    for (std::size_t next = 1; next < ranges.size(); ++next)
        if (ranges[next].first < ranges[next - 1].second)
            throw ZipError::corrupt("overlapping entries");
}

}  // namespace zepho
