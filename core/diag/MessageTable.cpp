#include "core/diag/MessageTable.h"

#include <array>

#include "core/diag/MessageRows.h"
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr OverrideRow overrides[] = {
    {"关窗口时收进托盘", "关窗口时收进菜单栏", "閉じたらメニューバーに格納", "Close to menu bar"},
    {"收起托盘", "收进菜单栏", "メニューバーに格納", "Hide to menu bar"},
    {"隐藏到托盘", "收进菜单栏", "メニューバーに格納", "Hide to menu bar"},
    {"服务还在后台跑。双击托盘图标可以叫回来。",
     "服务还在后台跑。点菜单栏上的图标可以叫回来。",
     "サービスはバックグラウンドで動作中です。メニューバーのアイコンから戻せます。",
     "The service keeps running in the background. Click the menu bar icon to bring it back."},
    {"要么是已经有一个 Zephon 在跑(看一下托盘),",
     "要么是已经有一个 Zephon 在跑(看一下菜单栏),",
     "既に Zephon が起動しているか(メニューバーを確認)、",
     "either another Zephon is already running (check the menu bar),"},
    {"开机即启动服务", "开机即启动服务", "起動時にサービスを開始", "Start service on launch"},
    {"透传给 s2.exe,例如 --n-gpu-layers 99",
     "透传给 s2,例如 --min-tokens-before-end 8",
     "s2 にそのまま渡す。例:--min-tokens-before-end 8",
     "Passed straight to s2, e.g. --min-tokens-before-end 8"},
    {"先确认 bin\\engine\\s2.exe 和 bin\\models\\*.gguf 都在。",
     "先确认数据目录里的 engine/s2 和 models/*.gguf 都在。",
     "データフォルダに engine/s2 と models/*.gguf があるか確認してください。",
     "Check that engine/s2 and models/*.gguf are both present in the data folder."},
    {"现成的 WinHTTP 客户端在 Zephon\\interface\\zephon_client.h",
     "现成的 C++ 客户端在 Zephon/interface/zephon_client.h",
     "C++ クライアントは Zephon/interface/zephon_client.h にあります",
     "A ready-made C++ client lives in Zephon/interface/zephon_client.h"},
    {"模型已卸载,这一句缓存里没有。\n要现合成的话,先在「模型」页点「载入模型」。",
     "模型已卸载,这一句缓存里没有。\n要现合成的话,先在「服务」页点「载入模型」。",
     "モデルはアンロード済みで、この文はキャッシュにありません。\n今すぐ合成するには「サービス」ページで「モデルを読み込む」を押してください。",
     "The model is unloaded and this line is not in the cache.\nTo synthesize it now, hit Load model on the Service page."},
    {"但**缓存里没有的**句子会明确报错,直到你手动载入模型。",
     "但缓存里没有的句子会明确报错,直到你手动载入模型。",
     "ただしキャッシュに無い文は明確にエラーを返します(手動で読み込むまで)。",
     "But lines that are not cached will fail with a clear error until you load it again."},
    {"自动(用通用版,CPU)", "自动(有 Apple GPU 就用 Metal)", "自動(Apple GPU があれば Metal)", "Auto (Metal when an Apple GPU is present)"},
};

constexpr MessageRow extras[] = {
    {"版本", "バージョン", "Version"},
    {"推理进程一直在忙 —— 它一次只算一句,前一句还没算完。",
     "推論プロセスがずっと処理中です —— 一度に 1 文しか合成できず、前の 1 文がまだ終わっていません。",
     "The engine is still busy — it synthesizes one line at a time, and the previous one has not finished."},
    {"等它算完再试,或者把「设置」里的合成超时调大。",
     "終わるのを待ってからもう一度試すか、「設定」の合成タイムアウトを大きくしてください。",
     "Wait for it to finish and try again, or raise the synthesis timeout in Settings."},
    {"先选一个。", "1 つ選んでください。", "Pick one first."},
    {"选一个要分享的音色(参考音频会一起打包,一次只能分享一个):",
     "共有する音色を 1 つ選んでください(参照音声も一緒に梱包されます。一度に 1 つだけ):",
     "Pick one voice to share (its reference audio is packed in — one per upload):"},
    {"选一条要分享的广播绑定(它用到的音色会一起打包,一次只能分享一条):",
     "共有する放送バインドを 1 件選んでください(使用中の音色も一緒に梱包されます。一度に 1 件だけ):",
     "Pick one broadcast binding to share (the voice it uses is packed in — one per upload):"},
    {"打开发布页", "リリースページを開く", "Open release page"},
    {"在浏览器里打开", "ブラウザで開く", "Open in browser"},
    {"下载并导入", "ダウンロードして取り込む", "Download && import"},
    {"撤下选中", "選択を取り下げる", "Unshare"},
    {"(这条是你传的)", "(これはあなたの共有です)", "(you shared this)"},
    {"只是个署名,不是账号 —— 不验证、不注册。",
     "署名にすぎません。アカウントではなく、認証も登録もありません。",
     "Just a byline, not an account — nothing is verified or registered."},
    {"Metal(Apple 芯片 GPU)", "Metal(Apple シリコン GPU)", "Metal (Apple silicon GPU)"},
    {"自动(有 Apple GPU 就用 Metal)", "自動(Apple GPU があれば Metal)", "Auto (Metal when an Apple GPU is present)"},
    {"数据目录", "データフォルダ", "Data folder"},
    {"打开数据目录", "データフォルダを開く", "Open data folder"},
    {"在访达中显示", "Finder で表示", "Reveal in Finder"},
    {"菜单栏", "メニューバー", "Menu bar"},
    {"退出", "終了", "Quit"},
    {"关于 Zephon", "Zephon について", "About Zephon"},
    {"codec 留在 CPU(Metal 后端没有 PAD 算子)",
     "codec は CPU のまま(Metal バックエンドに PAD 演算子がありません)",
     "codec stays on the CPU (the Metal backend has no PAD op)"},
    {"这台机器没有 Apple GPU,已经退回 CPU。",
     "このマシンには Apple GPU がないため CPU に戻しました。",
     "No Apple GPU on this machine — fell back to the CPU."},
    {"已经有一个 Zephon 在跑了。", "Zephon は既に起動しています。", "Zephon is already running."},
    {"推理进程起不来:%@(%@)", "推論プロセスを起動できません:%@(%@)", "could not start the inference process: %@ (%@)"},
    {"本机 %d..%d 全被占用,推理进程无处可放",
     "ローカルの %d..%d が全て使用中で、推論プロセスを置く場所がありません",
     "ports %d..%d are all taken — nowhere to put the inference process"},
    {"推理进程退出了(信号 %@):%@,日志 %@",
     "推論プロセスが終了(シグナル %@):%@、ログ %@",
     "the inference process exited (signal %@): %@, log %@"},
};
// clang-format on

}  // namespace

std::span<const std::span<const MessageRow>> i18nRowGroups() {
    static const std::array groups = {pageRows(), engineRows(), settingsRows(), hubRows(),
                                      updateRows()};
    return groups;
}

std::span<const std::span<const MessageRow>> windowRowGroups() {
    static const std::array groups = {frameRows(), speechRows(), voiceRows(), setupRows(),
                                      listRows()};
    return groups;
}

std::span<const OverrideRow> macOverrideRows() {
    return overrides;
}

std::span<const MessageRow> macExtraRows() {
    return extras;
}

}  // namespace zepho
