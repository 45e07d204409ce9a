#include "core/diag/MessageRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"该有的都有了,不用再下。", "必要なものは揃っています。ダウンロードは不要です。", "Everything you need is already here."},
    {"想换个模型档位就去「模型」页挑。",
     "別の量子化のモデルに変えるには「モデル」ページで選んでください。",
     "To try a different quantisation, use the Models tab."},
    {"一共要下 %s:", "合計 %s をダウンロードします:", "About to download %s in total:"},
    {"· 模型 %s(%s)", "· モデル %s(%s)", "· model %s (%s)"},
    {"· %s(%s)—— 这台机器是 N 卡,下了才能用 GPU 加速",
     "· %s(%s)—— このマシンには NVIDIA の GPU があり、GPU で高速化するにはこれが必要です",
     "· %s (%s) — an NVIDIA card was found; this is what enables GPU acceleration"},
    {"(没检测到 N 卡,不下 CUDA —— 你这台走 Vulkan,引擎已经随安装包装好了)",
     "(NVIDIA の GPU が見つからないため CUDA はダウンロードしません —— このマシンでは Vulkan を使い、そのエンジンはインストーラーに含まれています)",
     "(No NVIDIA card found, so CUDA is skipped — this PC uses Vulkan, whose engine already ships with the installer.)"},
    {"正在下载 %d 项…", "%d 個をダウンロード中…", "Downloading %d item(s)..."},
    {"检查更新", "更新を確認", "Check for updates"},
    {"点一下看看有没有新版", "クリックして新しいバージョンを確認", "Click to check for a new version"},
    {"正在查询…", "確認しています…", "Checking..."},
    {"查不了:", "確認できません:", "Cannot check: "},
    {"有新版 %s,点右边去下载",
     "新しいバージョン %s があります。右側からダウンロードしてください",
     "Version %s is available - see the link"},
    {"已是最新(%s)", "最新です(%s)", "Up to date (%s)"},
    {"GitHub 返回 %d", "GitHub が %d を返しました", "GitHub returned %d"},
    {"GitHub 接口限流了,过一会儿再试",
     "GitHub API の利用制限に達しました。しばらくしてからもう一度試してください",
     "GitHub API rate limit reached - try again shortly"},
    {"GitHub 返回的内容看不懂", "GitHub の応答を解釈できません", "Could not read GitHub’s response"},
    {"GitHub 上还没有 Zephon 的发布记录", "GitHub に Zephon のリリースがまだありません", "No Zephon release found on GitHub"},
    {"引擎原生 speed", "エンジン標準の speed", "engine-native speed"},
    {"本地变速不变调(WSOLA)", "ローカルで話速を変更・音程は維持(WSOLA)", "local time-stretch (WSOLA)"},
    {"本地重采样(变速也变调)", "ローカルでリサンプリング(音程も変化)", "local resample (pitch shifts too)"},
    {"3~4 GB 显存 / 纯 CPU 首选", "VRAM 3~4 GB / CPU のみなら最適", "3-4 GB VRAM / best for CPU-only"},
    {"4~6 GB 显存", "VRAM 4~6 GB", "4-6 GB VRAM"},
    {"6~8 GB 显存 · 推荐", "VRAM 6~8 GB · 推奨", "6-8 GB VRAM · recommended"},
    {"8 GB 以上显存", "VRAM 8 GB 以上", "8 GB+ VRAM"},
    {"显存紧张,质量有损", "VRAM が少ない場合向け、品質は低下", "tight on VRAM, quality suffers"},
    {"最小,质量明显下降", "最小、品質は明らかに低下", "smallest, clearly lower quality"},
    {"不量化,质量最好,要 10 GB+ 显存", "量子化なし、最高品質、VRAM 10 GB 以上が必要", "unquantized, best quality, needs 10 GB+ VRAM"},
    {"分词器 tokenizer.json(必需)", "トークナイザー tokenizer.json(必須)", "tokenizer.json (required)"},
    {"正在校验…", "検証しています…", "Verifying…"},
    {"完成", "完了", "done"},
    {"已取消(下了一半的留着,下次接着下)",
     "キャンセルしました(途中のファイルは残してあり、次回は続きから再開します)",
     "cancelled (partial kept, resumes next time)"},
    {"失败:", "失敗:", "failed: "},
    {" —— 正在连接…", " —— 接続しています…", " — connecting…"},
    {" —— 正在校验…", " —— 検証しています…", " — verifying…"},
    {" —— 完成", " —— 完了", " — done"},
    {" —— 已取消(下了一半的留着,下次接着下)",
     " —— キャンセルしました(途中のファイルは残してあり、次回は続きから再開します)",
     " — cancelled (partial kept)"},
    {" —— 失败:", " —— 失敗:", " — failed: "},
    {"  剩约 %d 分 %d 秒", "  残り約 %d 分 %d 秒", "  ~%d m %d s left"},
    {"显示主窗口", "メインウィンドウを表示", "Show window"},
    {"隐藏到托盘", "トレイに格納", "Hide to tray"},
    {"自动", "自動", "Auto"},
    {"默认", "既定", "Default"},
    {"女声", "女声", "Female"},
    {"男声", "男声", "Male"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> updateRows() {
    return rows;
}

}  // namespace zepho
