#include "tests/tools/HostileClips.h"

#include <algorithm>
#include <array>
#include <random>
#include <utility>

namespace zepho::test {
namespace {

void append(Bytes& to, ByteView bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void appendInteger(Bytes& to, std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes noise(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

// Vorbis packs its fields from the lowest bit of each byte on.
class BitWriter {
public:
    explicit BitWriter(Bytes start = {}) : bytes(std::move(start)) {}

    BitWriter& put(std::uint64_t value, int bits) {
        for (int i = 0; i < bits; ++i) {
            if (used == 0) bytes.push_back(0);
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | ((value >> i & 1) << used));
            used = (used + 1) % 8;
        }
        return *this;
    }
    BitWriter& putNoise(std::size_t size, std::uint32_t seed) {
        for (const std::uint8_t byte : noise(size, seed)) put(byte, 8);
        return *this;
    }

    Bytes bytes;

private:
    int used = 0;
};

class OggWriter {
public:
    // One packet in as many pages as it needs.
    OggWriter& packet(ByteView body) {
        constexpr std::size_t pageRoom = 254 * 255;
        bool first = true;
        do {
            const ByteView part = body.first(std::min(body.size(), pageRoom));
            body = body.subspan(part.size());
            page(part, !first, body.empty());
            first = false;
        } while (!body.empty());
        return *this;
    }

    Bytes file;

private:
    static std::uint32_t checksum(ByteView bytes) {
        std::uint32_t sum = 0;
        for (const std::uint8_t byte : bytes) {
            sum ^= static_cast<std::uint32_t>(byte) << 24;
            for (int bit = 0; bit < 8; ++bit)
                sum = (sum & 0x80000000U) != 0 ? sum << 1 ^ 0x04C11DB7U : sum << 1;
        }
        return sum;
    }

    void page(ByteView part, bool continued, bool ends) {
        Bytes made = toBytes("OggS");
        appendInteger(made, 0, 1);
        appendInteger(made, (continued ? 1U : 0U) | (number == 0 ? 2U : 0U), 1);
        appendInteger(made, number < 3 ? 0 : 1024U * (number - 2), 8);
        appendInteger(made, 0x5A45, 4);
        appendInteger(made, number++, 4);
        appendInteger(made, 0, 4);
        const std::size_t full = part.size() / 255;
        appendInteger(made, full + (ends ? 1 : 0), 1);
        made.insert(made.end(), full, 255);
        if (ends) appendInteger(made, part.size() % 255, 1);
        append(made, part);
        const std::uint32_t sum = checksum(made);
        for (std::size_t i = 0; i < 4; ++i) made[22 + i] = static_cast<std::uint8_t>(sum >> 8 * i);
        append(file, made);
    }

    std::uint32_t number = 0;
};

struct Identity {
    std::uint32_t channels = 1;
    std::uint32_t rate = 44100;
    std::uint32_t blockSizes = 0xB8;  // two exponents
};

Bytes identityPacket(const Identity& identity) {
    Bytes packet = toBytes("\x01vorbis");
    appendInteger(packet, 0, 4);
    appendInteger(packet, identity.channels, 1);
    appendInteger(packet, identity.rate, 4);
    appendInteger(packet, 0, 12);
    appendInteger(packet, identity.blockSizes, 1);
    appendInteger(packet, 1, 1);
    return packet;
}

// `vendorLength` and `count` are what the packet claims; `entry` is repeated behind them.
Bytes commentPacket(std::uint32_t vendorLength, std::uint32_t count, std::uint32_t entryLength,
                    std::size_t entries) {
    Bytes packet = toBytes("\x03vorbis");
    appendInteger(packet, vendorLength, 4);
    appendInteger(packet, count, 4);
    for (std::size_t i = 0; i < entries; ++i) appendInteger(packet, entryLength, 4);
    appendInteger(packet, 1, 1);
    return packet;
}

Bytes plainComment() {
    return commentPacket(0, 0, 0, 0);
}

int bitsFor(std::uint32_t value) {
    int bits = 0;
    for (; value != 0; value >>= 1) ++bits;
    return bits;
}

struct Codebook {
    std::uint32_t dimensions = 1;
    std::uint32_t entries = 2;
    int length = 1;  // of every code word
    std::uint32_t lookup = 0;
    std::uint32_t valueBits = 1;
};

// All code words in one run, so that a few bytes describe any number of them.
void putCodebook(BitWriter& to, const Codebook& book) {
    to.put(0x564342, 24).put(book.dimensions, 16).put(book.entries, 24);
    to.put(1, 1).put(static_cast<std::uint64_t>(book.length - 1), 5);
    to.put(book.entries, bitsFor(book.entries)).put(book.lookup, 4);
    if (book.lookup != 0) to.put(0, 32).put(0, 32).put(book.valueBits - 1, 4).put(0, 1);
}

BitWriter setupStart(int codebooks) {
    BitWriter setup(toBytes("\x05vorbis"));
    setup.put(static_cast<std::uint64_t>(codebooks - 1), 8);
    return setup;
}

Bytes withSetup(const Identity& identity, ByteView setup) {
    OggWriter ogg;
    ogg.packet(identityPacket(identity)).packet(plainComment()).packet(setup);
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        Bytes audio = noise(200, seed);
        audio[0] &= 0xFE;  // an audio packet
        ogg.packet(audio);
    }
    return ogg.file;
}

Bytes setupOf(const Codebook& book, int count, std::size_t tail) {
    BitWriter setup = setupStart(count);
    for (int i = 0; i < count; ++i) putCodebook(setup, book);
    return setup.putNoise(tail, 77).bytes;
}

// Small sound codebooks, no time transforms, and noise where floors, residues and modes belong.
Bytes setupWithNoise(std::uint32_t seed) {
    BitWriter setup = setupStart(3);
    for (std::uint32_t i = 0; i < 3; ++i)
        putCodebook(setup, {.dimensions = 1 + i, .entries = 16, .length = 4, .lookup = 0});
    setup.put(0, 6).put(0, 16);
    setup.put(seed % 4, 6).put(seed % 2, 16);
    return setup.putNoise(400, seed).bytes;
}

// MPEG 1, layer III, 44.1 kHz, joint stereo.
constexpr std::array<std::uint8_t, 4> frameHead(std::uint32_t bitrate, std::uint32_t padding = 0) {
    return {0xFF, 0xFB, static_cast<std::uint8_t>(bitrate << 4 | padding << 1), 0x40};
}

constexpr std::size_t frameSize128 = 417;

Bytes frames(int count, std::uint32_t seed) {
    Bytes file;
    for (int i = 0; i < count; ++i) {
        append(file, frameHead(9));
        append(file, noise(frameSize128 - 4, seed + static_cast<std::uint32_t>(i)));
    }
    return file;
}

// A frame with an encoder's tag that claims `delay` and `padding` samples and `total` frames.
Bytes taggedFrame(std::string_view word, std::uint32_t total, std::uint32_t delay,
                  std::uint32_t padding) {
    Bytes frame(frameSize128, 0);
    const auto head = frameHead(9);
    std::copy(head.begin(), head.end(), frame.begin());
    Bytes tag = toBytes(word);
    append(tag, Bytes{0, 0, 0, 1});
    for (int shift = 24; shift >= 0; shift -= 8)
        tag.push_back(static_cast<std::uint8_t>(total >> shift));
    append(tag, toBytes("LAME3.100"));
    tag.resize(tag.size() + 12, 0);
    const std::uint32_t both = delay << 12 | padding;
    for (int shift = 16; shift >= 0; shift -= 8)
        tag.push_back(static_cast<std::uint8_t>(both >> shift));
    std::copy(tag.begin(), tag.end(), frame.begin() + 4 + 32);
    return frame;
}

Bytes joined(Bytes first, ByteView second) {
    append(first, second);
    return first;
}

}  // namespace

std::vector<HostileClip> hostileOggClips() {
    std::vector<HostileClip> clips;
    const auto add = [&clips](std::string name, Bytes bytes) {
        clips.push_back({std::move(name), std::move(bytes)});
    };
    const Bytes sound = setupWithNoise(1);
    for (const std::uint32_t channels : {0U, 16U, 17U, 255U})
        add(std::to_string(channels) + " channels", withSetup({.channels = channels}, sound));
    for (const std::uint32_t rate : {0U, 1U, 0x7FFFFFFFU, 0xFFFFFFFFU})
        add("rate " + std::to_string(rate), withSetup({.rate = rate}, sound));
    for (const std::uint32_t sizes : {0x00U, 0x66U, 0xDDU, 0x6DU, 0xFFU})
        add("block sizes " + std::to_string(sizes), withSetup({.blockSizes = sizes}, sound));

    for (const std::uint32_t vendor : {0x7FFFFFFFU, 0xFFFFFFFFU, 0xFFFFFFF8U})
        add("vendor of " + std::to_string(vendor) + " bytes",
            OggWriter().packet(identityPacket({})).packet(commentPacket(vendor, 0, 0, 0)).file);
    // The size of the table wraps to a few bytes in 32 bits, and the entries run over its end.
    for (const std::uint32_t count : {0x20000000U, 0x20000001U, 0x40000002U, 0x7FFFFFFFU})
        for (const std::uint32_t length : {0U, 0xFFFFFFFFU})
            add(std::to_string(count) + " comments of " + std::to_string(length) + " bytes",
                OggWriter()
                    .packet(identityPacket({}))
                    .packet(commentPacket(0, count, length, 40'000))
                    .packet(sound)
                    .file);

    constexpr std::uint32_t most = 0xFFFFFF;
    for (const int count : {1, 8, 64, 256})
        add(std::to_string(count) + " codebooks of 16 million entries",
            withSetup({}, setupOf({.entries = most, .length = 24}, count, 64)));
    for (const std::uint32_t lookup : {1U, 2U, 3U})
        for (const std::uint32_t dimensions : {0U, 1U, 255U, 65535U})
            for (const std::uint32_t entries : {0U, 1U, 65536U, most})
                add("lookup " + std::to_string(lookup) + " over " + std::to_string(dimensions) +
                        " x " + std::to_string(entries),
                    withSetup({}, setupOf({.dimensions = dimensions,
                                           .entries = entries,
                                           .length = 24,
                                           .lookup = lookup},
                                          1, 60'000)));
    for (std::uint32_t seed = 1; seed <= 24; ++seed)
        add("noise for floors and residues, " + std::to_string(seed),
            withSetup({.channels = 1 + seed % 16}, setupWithNoise(seed)));
    add("a page of nothing", joined(toBytes("OggS"), Bytes(100, 0)));
    add("noise behind the capture word", joined(toBytes("OggS"), noise(50'000, 3)));
    return clips;
}

std::vector<HostileClip> hostileMp3Clips() {
    std::vector<HostileClip> clips;
    const auto add = [&clips](std::string name, Bytes bytes) {
        clips.push_back({std::move(name), std::move(bytes)});
    };
    for (std::uint32_t seed = 1; seed <= 12; ++seed)
        add("frames of noise, " + std::to_string(seed), frames(40, seed * 1000));
    for (const std::size_t distance : {8U, 64U, 417U, 2304U, 60'000U}) {
        Bytes file;
        for (std::uint32_t i = 0; i < 12; ++i) {
            append(file, frameHead(0, i % 2));
            append(file, noise(distance - 4 + i % 2, i));
        }
        add("free format, a frame every " + std::to_string(distance), std::move(file));
    }
    Bytes syncs;
    for (int i = 0; i < 100'000; ++i) append(syncs, frameHead(0));
    add("nothing but free-format headers", std::move(syncs));

    for (const std::string_view word : {"Info", "Xing"})
        for (const std::uint32_t total : {0U, 1U, 0x7FFFFFFFU, 0xFFFFFFFFU})
            for (const std::uint32_t trim : {0U, 0xFFFU})
                add(std::string(word) + " tag of " + std::to_string(total) + " frames, trim " +
                        std::to_string(trim),
                    joined(taggedFrame(word, total, trim, trim), frames(3, 9)));
    for (const std::uint8_t size : {std::uint8_t{0x00}, std::uint8_t{0x7F}, std::uint8_t{0xFF}})
        add("ID3 size " + std::to_string(size),
            joined(joined(toBytes("ID3\x04"), Bytes{0, 0x10, size, size, size, size}),
                   frames(3, 5)));
    for (const std::uint32_t size : {0U, 0xFFFFFFFFU, 0xFFFFFFE0U, 0x7FFFFFFFU}) {
        Bytes tag = toBytes("APETAGEX");
        appendInteger(tag, 2000, 4);
        for (int i = 0; i < 4; ++i) appendInteger(tag, size, 4);
        tag.resize(tag.size() + 4, 0);
        add("APE tag of " + std::to_string(size) + " bytes", joined(frames(3, 6), tag));
    }
    add("one frame header and nothing else", joined({}, frameHead(9)));
    return clips;
}

std::vector<HostileClip> damagedClips(const std::string& name, ByteView good, int count) {
    std::vector<HostileClip> clips;
    std::mt19937 random(20240501);
    for (int i = 0; i < count; ++i) {
        const std::size_t size =
            good.size() * static_cast<std::size_t>(i) / static_cast<std::size_t>(count);
        clips.push_back({name + " cut to " + std::to_string(size),
                         Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size))});
    }
    for (int i = 0; i < count; ++i) {
        Bytes bytes(good.begin(), good.end());
        // The headers are at the start, and the most sensitive.
        const std::size_t stretch =
            i % 2 == 0 ? std::min<std::size_t>(bytes.size(), 5000) : bytes.size();
        for (int turned = 0; turned < 1 + i % 8; ++turned)
            bytes[random() % stretch] ^= static_cast<std::uint8_t>(1U << random() % 8);
        clips.push_back({name + " with bits turned over, " + std::to_string(i), std::move(bytes)});
    }
    return clips;
}

}  // namespace zepho::test
