// Reads a zip archive that lies in memory as one buffer.
//
// A plain value, used by one thread at a time; copies share the archive's bytes. The archive is
// accepted or refused for its directory when it is opened, and entry by entry when it is read. All
// failures are thrown as ZipError.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

class ZipReader {
public:
    // What read() inflates at most, whatever an entry claims.
    static constexpr std::uint64_t maxInflated = std::uint64_t{512} << 20;

    explicit ZipReader(SharedBytes archive);
    explicit ZipReader(const std::string& path);

    // Sorted. Directories are left out; of two entries of one name the later counts.
    [[nodiscard]] std::vector<std::string> names() const;
    [[nodiscard]] bool contains(std::string_view name) const;

    // The CRC is not checked.
    [[nodiscard]] Bytes read(std::string_view name) const;
    // The same, with the work taken out of a budget in bytes, which is never overdrawn.
    [[nodiscard]] Bytes read(std::string_view name, std::uint64_t& budget) const;

    // Throws if the entries claim more than `maxTotal` bytes together, or if two of them lie over
    // each other, which no honest archive needs.
    void refuseBombs(std::uint64_t maxTotal) const;

private:
    struct Entry {
        std::uint64_t offset = 0;
        std::uint16_t method = 0;
        std::uint64_t csize = 0;
        std::uint64_t usize = 0;
    };

    void parseDirectory();

    SharedBytes bytes;
    std::map<std::string, Entry, std::less<>> index;
};

}  // namespace zepho
