// Texts that only the window shows, beside those of the main tables: one group a file.
//
// Asked after every other table. Compile-time constants; any thread.
#pragma once

#include <span>

#include "core/diag/MessageTable.h"

namespace zepho {

std::span<const MessageRow> frameRows();
std::span<const MessageRow> speechRows();
std::span<const MessageRow> voiceRows();
std::span<const MessageRow> setupRows();
std::span<const MessageRow> listRows();

}  // namespace zepho
