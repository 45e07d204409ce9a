// One line of the index file, as the JSON library would write it sorted and indented. Pure; any
// thread.
#pragma once

#include "core/platform/Bytes.h"
#include "core/store/CacheRecord.h"

namespace zepho {

// Appends `lead`, which is a comma or the brace that opens the file, and the record. False, with
// nothing appended, for a record with a text that is not valid UTF-8: a JSON file cannot hold it. The
// clip of such a record is adopted at the next start.
[[nodiscard]] bool appendIndexLine(Bytes& to, const CacheRecord& record, char lead);

}  // namespace zepho
