#include "tests/pack/ZipForge.h"

namespace zepho::test {
namespace {

void put(Bytes& out, std::uint64_t value, int bytes) {
    for (int byte = 0; byte < bytes; ++byte)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
}

void put(Bytes& out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

// Bits as DEFLATE packs them, the first into the lowest bit.
class BitWriter {
public:
    void add(std::uint32_t value, int count) {
        for (int bit = 0; bit < count; ++bit, ++used) {
            if (used % 8 == 0) out.push_back(0);
            out.back() =
                static_cast<std::uint8_t>(out.back() | ((value >> bit) & 1U) << (used % 8));
        }
    }
    // Huffman codes go in from their highest bit.
    void addCode(std::uint32_t code, int count) {
        for (int bit = count - 1; bit >= 0; --bit) add(code >> bit & 1U, 1);
    }
    Bytes out;

private:
    std::uint64_t used = 0;
};

}  // namespace

Bytes forgeZip(const std::vector<ForgedEntry>& entries, const ForgedEnd& end) {
    Bytes out;
    std::vector<std::uint32_t> offsets;
    for (const ForgedEntry& entry : entries) {
        offsets.push_back(static_cast<std::uint32_t>(out.size()));
        put(out, 0x04034B50, 4);
        put(out, 20, 2);
        put(out, 0, 2);
        put(out, entry.method, 2);
        put(out, 0, 8);  // times, CRC
        put(out, entry.stored.size(), 4);
        put(out, entry.usize, 4);
        put(out, entry.name.size(), 2);
        put(out, entry.localExtra.size(), 2);
        put(out, asBytes(entry.name));
        put(out, asBytes(entry.localExtra));
        put(out, entry.stored);
    }
    const std::size_t directory = out.size();
    for (std::size_t at = 0; at < entries.size(); ++at) {
        const ForgedEntry& entry = entries[at];
        put(out, 0x02014B50, 4);
        put(out, 20, 2);
        put(out, 20, 2);
        put(out, 0, 2);
        put(out, entry.method, 2);
        put(out, 0, 8);
        put(out, entry.csize.value_or(static_cast<std::uint32_t>(entry.stored.size())), 4);
        put(out, entry.usize, 4);
        put(out, entry.name.size(), 2);
        put(out, entry.directoryExtra.size(), 2);
        put(out, entry.comment.size(), 2);
        put(out, 0, 8);
        put(out, entry.offset.value_or(offsets[at]), 4);
        put(out, asBytes(entry.name));
        put(out, asBytes(entry.directoryExtra));
        put(out, asBytes(entry.comment));
    }
    const std::size_t directorySize = out.size() - directory;
    put(out, 0x06054B50, 4);
    put(out, 0, 4);
    const auto count = end.count.value_or(static_cast<std::uint16_t>(entries.size()));
    put(out, count, 2);
    put(out, count, 2);
    put(out, directorySize, 4);
    put(out, end.directory.value_or(static_cast<std::uint32_t>(directory)), 4);
    put(out, end.comment.size(), 2);
    put(out, asBytes(end.comment));
    return out;
}

Bytes zeroBomb(std::uint64_t size) {
    // One dynamic block: the literal 0 and the end in two bits, a match of length 258 in one bit,
    // the only distance (1) in one bit.
    BitWriter bits;
    bits.add(1, 1);   // last block
    bits.add(2, 2);   // dynamic codes
    bits.add(29, 5);  // 286 literal and length codes
    bits.add(0, 5);   // one distance code
    bits.add(14, 4);  // 18 lengths of code lengths follow, in the order below
    const int order[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1};
    // Code lengths used: 18 (a run of zeros) in 1 bit, 1 and 2 in 2 bits each.
    for (const int symbol : order)
        bits.add(symbol == 18 ? 1 : symbol <= 2 && symbol > 0 ? 2 : 0, 3);
    const auto run = [&bits](std::uint32_t zeros) {
        bits.addCode(0, 1);
        bits.add(zeros - 11, 7);
    };
    const auto lengthOne = [&bits] { bits.addCode(2, 2); };
    const auto lengthTwo = [&bits] { bits.addCode(3, 2); };
    lengthTwo();  // literal 0
    run(138);
    run(117);
    lengthTwo();  // 256, the end
    run(28);
    lengthOne();  // 285, a match of 258
    lengthOne();  // distance 1
    const auto literal = [&bits] { bits.addCode(2, 2); };
    literal();
    std::uint64_t written = 1;
    for (; written + 258 <= size; written += 258) bits.add(0, 2);
    for (; written < size; ++written) literal();
    bits.addCode(3, 2);
    return std::move(bits.out);
}

Bytes noise(std::size_t size, std::uint32_t seed) {
    Bytes out(size);
    std::uint32_t state = seed * 2654435761U + 1;
    for (std::uint8_t& byte : out) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return out;
}

}  // namespace zepho::test
