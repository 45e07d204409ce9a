#include "tests/pack/ZipForge.h"

#include <random>

#include "tests/audio/WavBytes.h"

namespace zepho::test {

Bytes forgeZip(const std::vector<ForgedEntry>& entries, const ForgedEnd& end) {
    std::string locals;
    std::string directory;
    for (const ForgedEntry& entry : entries) {
        // From the version and the flags to the length of the name; no time, no CRC.
        const auto common = [&](std::uint64_t csize) {
            return littleEndian(20, 4) + littleEndian(entry.method, 2) + std::string(8, '\0') +
                   littleEndian(csize, 4) + littleEndian(entry.usize, 4) +
                   littleEndian(entry.name.size(), 2);
        };
        directory += "PK\1\2" + littleEndian(20, 2) +
                     common(entry.csize.value_or(entry.stored.size())) + std::string(12, '\0') +
                     littleEndian(entry.offset.value_or(locals.size()), 4) + entry.name;
        locals += "PK\3\4" + common(entry.stored.size()) + std::string(2, '\0') + entry.name;
        locals += asText(entry.stored);
    }
    const std::string count = littleEndian(end.count.value_or(entries.size()), 2);
    return toBytes(locals + directory + "PK\5\6" + littleEndian(0, 4) + count + count +
                   littleEndian(directory.size(), 4) +
                   littleEndian(end.directory.value_or(locals.size()), 4) +
                   littleEndian(end.comment.size(), 2) + end.comment);
}

Bytes zeroBomb(std::uint64_t size) {
    // One dynamic block: its tables of codes, and the literal 0, which ends one bit into the next
    // byte. From there a match of 258 bytes at distance 1 takes two bits of 0, and the end two of 1.
    Bytes stream{0xED, 0xC0, 0x81, 0, 0, 0, 0, 0x80, 0xA0, 0xFD, 0xA9, 0x17, 0xA9};
    stream.resize(stream.size() + size / (4 * 258) + 1, 0);
    stream.push_back(6);
    return stream;
}

Bytes noise(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

}  // namespace zepho::test
