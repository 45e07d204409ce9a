// The names of a directory, sorted, in two allocations however many there are.
//
// Filled first, then sorted, then asked. A plain value, used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zepho {

class FileNames {
public:
    struct Name {
        std::uint64_t beginning = 0;
        std::size_t from = 0;
        std::uint32_t size = 0;
        bool known = false;  // for whoever goes over the names twice
    };

    void add(std::string_view name);
    // After the last add().
    void sort();
    // Nothing if the name is not there. Costs next to nothing if the names asked for come in order.
    [[nodiscard]] Name* find(std::string_view name);
    [[nodiscard]] const std::vector<Name>& all() const { return names; }
    [[nodiscard]] std::string_view text(const Name& name) const {
        return std::string_view(texts).substr(name.from, name.size);
    }

private:
    std::string texts;
    std::vector<Name> names;
    std::size_t next = 0;  // behind the one that was found last
};

}  // namespace zepho
