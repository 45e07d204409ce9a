// Texts of the service and preview pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"把文本文件拖到这里也行。", "テキストファイルをここにドロップできます。", "You can also drop a text file here."},
};
// clang-format on

}  // namespace

std::span<const MessageRow> speechRows() {
    return rows;
}

}  // namespace zepho
