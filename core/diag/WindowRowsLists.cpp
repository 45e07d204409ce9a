// Texts of the cache, hub and log pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"播不出来:这台机器上没有能用的声音设备。", "再生できません:このマシンには使えるサウンドデバイスがありません。",
     "Cannot play: this machine has no usable sound device."},
    {"排序", "並べ替え", "Order"},
    {"请求", "リクエスト", "Requests"},
    {"级别", "レベル", "Level"},
    {"保存日志…", "ログを保存…", "Save log…"},
    {"诊断包…", "診断パック…", "Diagnostics…"},
    {"复制为 curl", "curl としてコピー", "Copy as curl"},
    {"把选中的请求复制成一条 curl 命令。日志里不存句子,句子自己填。",
     "選択したリクエストを curl コマンドとしてコピーします。文はログに残らないため、自分で入れてください。",
     "Copies the selected request as a curl command. The log keeps no sentences: fill in your own."},
    {"要念的句子", "読み上げる文", "the sentence to speak"},
    {"curl 命令已复制。", "curl コマンドをコピーしました。", "The curl command is copied."},
    {"保存失败:", "保存に失敗しました:", "Saving failed: "},
    {"已保存到 %@", "%@ に保存しました", "Saved to %@"},
    {"日志文件", "ログファイル", "Log files"},
    {"诊断包", "診断パック", "Diagnostics"},
    {"包里就是下面这些文件,逐个看一眼再保存。云分享的删除凭据已经拿掉。",
     "パックには次のファイルが入ります。保存する前に中身を確認してください。クラウド共有の削除用の証明情報は取り除いてあります。",
     "The bundle holds these files; look through them before you save it. The delete credentials of your shares are taken out."},
    {"文件", "ファイル", "Files"},
    {"内容", "内容", "Content"},
    {"另存为…", "名前を付けて保存…", "Save as…"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> listRows() {
    return rows;
}

}  // namespace zepho
