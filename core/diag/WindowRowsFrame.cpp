// Texts of the frame of the window: dialogs, tray, status line, start.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"打不开:%@", "開けません:%@", "Cannot open %@"},
    {"Zephon 收进了托盘", "Zephon はトレイにあります", "Zephon is in the tray"},
    {"另一个程序正在用这个数据目录。", "別のプログラムがこのデータフォルダを使っています。",
     "Another program is using this data folder."},
    {"页面", "ページ", "Pages"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> frameRows() {
    return rows;
}

}  // namespace zepho
