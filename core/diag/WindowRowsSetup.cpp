// Texts of the settings and models pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"登录时启动(收在托盘里)", "ログイン時に起動(トレイに格納)", "Start at login (in the tray)"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> setupRows() {
    return rows;
}

}  // namespace zepho
