#include "core/pack/ZipWriter.h"

#include <cstring>
#include <optional>
#include <utility>

#include "core/pack/Deflate.h"
#include "core/pack/Noise.h"
#include "core/pack/ZipFormat.h"
#include "core/platform/Require.h"

namespace zepho {
namespace {

constexpr std::uint16_t version = 20;

std::optional<Bytes> shorterForm(ByteView data) {
    std::optional<Bytes> packed;
    if (!looksLikeNoise(data)) packed = deflate(data);
    if (packed && (packed->empty() || packed->size() >= data.size())) packed.reset();
    return packed;
}

}  // namespace

PackedEntry packEntry(ZipEntry entry) {
    PackedEntry result{
        std::move(entry.name), {}, crc32(entry.data), entry.data.size(), zip::stored};
    if (std::optional<Bytes> packed = shorterForm(entry.data)) {
        result.content = std::move(*packed);
        result.method = zip::deflated;
    } else {
        result.content = std::move(entry.data);
    }
    return result;
}

void ZipWriter::add(std::string_view name, ByteView data) {
    const std::optional<Bytes> packed = shorterForm(data);
    append({std::string(name), crc32(data), packed ? packed->size() : data.size(), data.size(), 0,
            packed ? zip::deflated : zip::stored},
           packed ? ByteView(*packed) : data);
}

void ZipWriter::add(const PackedEntry& entry) {
    append({entry.name, entry.crc, entry.content.size(), entry.usize, 0, entry.method},
           entry.content);
}

void ZipWriter::append(Record record, ByteView content) {
    record.offset = taken + out.size();
    put32(zip::localSignature);
    putCommon(record);
    put(asBytes(record.name));
    put(content);
    records.push_back(std::move(record));
}

void ZipWriter::takeOut(Bytes& to) {
    to.clear();
    to.swap(out);
    taken += to.size();
}

const Bytes& ZipWriter::finish() {
    const std::uint64_t start = taken + out.size();
    for (const Record& record : records) {
        put32(zip::directorySignature);
        put16(version);
        putCommon(record);
        put16(0);  // comment
        put16(0);  // disk
        put16(0);  // internal attributes
        put32(0);  // external attributes
        put32(record.offset);
        put(asBytes(record.name));
    }
    const std::uint64_t size = taken + out.size() - start;
    put32(zip::endSignature);
    put16(0);
    put16(0);
    put16(records.size());
    put16(records.size());
    put32(size);
    put32(start);
    put16(0);
    return out;
}

void ZipWriter::putCommon(const Record& record) {
    put16(version);
    // Not even for a name in UTF-8: readers of ours take every name as UTF-8.
    put16(0);
    put16(record.method);
    put16(0);  // time
    put16(0);  // date
    put32(record.crc);
    put32(record.csize);
    put32(record.usize);
    put16(record.name.size());
    put16(0);  // extra field
}

void ZipWriter::put16(std::uint64_t value) {
    require(value <= 0xFFFF, "a zip field of 16 bits");
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

void ZipWriter::put32(std::uint64_t value) {
    require(value <= 0xFFFFFFFF, "a zip field of 32 bits");
    put16(value & 0xFFFF);
    put16(value >> 16);
}

void ZipWriter::put(ByteView bytes) {
    const std::size_t from = out.size();
    out.resize(from + bytes.size());
    if (!bytes.empty()) std::memcpy(out.data() + from, bytes.data(), bytes.size());
}

}  // namespace zepho
