// Texts of the settings and models pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"登录时启动(收在托盘里)", "ログイン時に起動(トレイに格納)", "Start at login (in the tray)"},
    {"-1 = 全上 GPU,0 = 全在 CPU", "-1 = すべて GPU、0 = すべて CPU", "-1 = all on the GPU, 0 = all on the CPU"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> setupRows() {
    return rows;
}

}  // namespace zepho
