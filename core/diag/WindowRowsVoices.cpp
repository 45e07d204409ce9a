// Texts of the voices and broadcast pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"音频文件拖到表格上也行。", "音声ファイルを表にドロップすることもできます。", "Audio files can also be dropped onto the table."},
};
// clang-format on

}  // namespace

std::span<const MessageRow> voiceRows() {
    return rows;
}

}  // namespace zepho
