// The notes of an export or import, which stay few and short whatever the pack says.
//
// Plain values; one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zepho {

// A name from a pack as a note shows it, cut after so many characters or bytes.
[[nodiscard]] std::string nameInNote(std::string_view name);

class PackNotes {
public:
    static constexpr std::size_t maxNotes = 200;

    void add(std::string text);
    // The first ones, and in one line how many more there were.
    [[nodiscard]] std::vector<std::string> take();

private:
    std::vector<std::string> kept;
    std::size_t left = 0;
};

}  // namespace zepho
