// Reads the very text that the cache writes as its index, many times faster than a parser of all
// JSON can, and from pieces of the file as they come.
//
// A plain value, used by one thread. At the first byte that is not in that form it gives up, and
// somebody else reads the file from its start.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/store/CacheRecord.h"

namespace zepho {

class OwnIndexReader {
public:
    // The next piece of the text. False once it is clear that the text has another form.
    [[nodiscard]] bool take(std::string_view piece);
    // Whether the text was complete, and all of it in our form.
    [[nodiscard]] bool isComplete() const { return ended && window.empty(); }
    [[nodiscard]] std::vector<CacheRecordPointer> records() { return found.take(); }

private:
    std::string window;  // what no whole line could be made of yet
    bool begun = false;
    bool ended = false;
    CacheRecordList found;
};

}  // namespace zepho
