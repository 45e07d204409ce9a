// Texts of the cache, hub and log pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"保存日志…", "ログを保存…", "Save log…"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> listRows() {
    return rows;
}

}  // namespace zepho
