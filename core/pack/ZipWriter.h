// Writes a zip archive into one buffer in memory, which may be emptied on the way.
//
// A plain value, used by one thread at a time. Nothing of the machine or the moment goes into the
// archive: the same entries give the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/pack/ZipFormat.h"
#include "core/platform/Bytes.h"

namespace zepho {

// An entry in the form in which it goes into an archive. Making one is where the time goes, and needs
// no archive: several threads can do it for one.
struct PackedEntry {
    std::string name;
    Bytes content;
    std::uint32_t crc = 0;
    std::uint64_t usize = 0;
    std::uint16_t method = 0;
};
[[nodiscard]] PackedEntry packEntry(ZipEntry entry);

class ZipWriter {
public:
    // Appends one entry, deflated where that makes it shorter. Names, sizes and the number of
    // entries must fit the 16 and 32 bits of the format; the caller sees to that.
    void add(std::string_view name, ByteView data);
    void add(const PackedEntry& entry);

    // Hands over the part of the archive that no earlier call did, in place of what `to` held.
    void takeOut(Bytes& to);

    // Writes the directory and gives the archive, less what was taken out. It stays the writer's own,
    // and the writer is not reset.
    [[nodiscard]] const Bytes& finish();

private:
    struct Record {
        std::string name;
        std::uint32_t crc = 0;
        std::uint64_t csize = 0;
        std::uint64_t usize = 0;
        std::uint64_t offset = 0;
        std::uint16_t method = 0;
    };

    void append(Record record, ByteView content);
    void put16(std::uint64_t value);
    void put32(std::uint64_t value);
    void put(ByteView bytes);
    // What the local header and the directory entry say alike, from the needed version on.
    void putCommon(const Record& record);

    Bytes out;
    std::uint64_t taken = 0;  // bytes of the archive before `out`
    std::vector<Record> records;
};

}  // namespace zepho
