// Texts of the voices and broadcast pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"音频文件拖到表格上也行:拖到一行上就加给那个音色,拖到空白处就克隆新的。",
     "音声ファイルを表にドロップすることもできます。行の上ならその音色に追加し、空いている所なら新しい音色をクローンします。",
     "Audio files can also be dropped onto the table: on a row they are added to that voice, beside the rows they make a new one."},
    {"所有音频|*.wav;*.wave;*.mp3;*.mp2;*.mpga;*.ogg;*.oga;*.opus;*.flac;*.m4a;*.aac;*.aif;*.aiff;*.wma",
     "すべての音声|*.wav;*.wave;*.mp3;*.mp2;*.mpga;*.ogg;*.oga;*.opus;*.flac;*.m4a;*.aac;*.aif;*.aiff;*.wma",
     "All audio|*.wav;*.wave;*.mp3;*.mp2;*.mpga;*.ogg;*.oga;*.opus;*.flac;*.m4a;*.aac;*.aif;*.aiff;*.wma"},
    {"正在处理参考音频…", "参照音声を処理しています…", "Working on the reference audio…"},
    {"「%@」现在有 %d 段参考音频。", "「%@」の参照音声は %d 本になりました。", "\"%@\" now has %d clip(s)."},
    {"删掉这一段参考音频?\n%@", "この参照音声を削除しますか?\n%@", "Delete this clip?\n%@"},
    {"这个音色没有参考音频可以听。",
     "この音色には試聴できる参照音声がありません。",
     "This voice has no clip to listen to."},
    {"播不出来,原因在日志里。", "再生できません。理由はログにあります。", "Cannot play it; the log tells why."},
    {"播放", "再生", "Play"},
    {"停止", "停止", "Stop"},
    {"%.1f 秒", "%.1f 秒", "%.1f s"},
    {"长 %.0f 秒:超过 30 秒的部分用不上。",
     "長さ %.0f 秒:30 秒を超える部分は使われません。",
     "%.0f s long: what is beyond 30 s will not be used."},
    {"这段音频解不开,不知道有多长。",
     "この音声はデコードできず、長さがわかりません。",
     "This audio cannot be decoded; its length is not known."},
    {"还没写它的原话。", "書き起こしがまだありません。", "The transcript is missing."},
    {"⚠ %d 段有问题,见上面的提示",
     "⚠ %d 本に問題があります(上の表示を参照)",
     "⚠ %d clip(s) need attention, see above"},
    {"广播请求只带航司、语言和性别,在这里定好各由哪个音色来念。语言选「自动」的那条兜底所有语言,性别选「默认」的那条兜底两种性别。选中一行按 Ctrl+C 复制成文字(没选就复制全部),Ctrl+V 从表格软件粘贴。",
     "放送リクエストには航空会社・言語・性別だけが付きます。それぞれどの音色で読むかをここで決めます。言語「自動」の行は全言語の、性別「既定」の行は両方の性別のフォールバックです。Ctrl+C で選択行(未選択なら全行)をテキストとしてコピーし、Ctrl+V で表計算から貼り付けられます。",
     "An announcement names an airline, a language and a gender; here you say which voice speaks it. A row with the language Auto serves all languages, one with the gender Default both genders. Ctrl+C copies the selected row as text (all rows without a selection), Ctrl+V pastes rows from a spreadsheet."},
    {"例如 ANA", "例:ANA", "e.g. ANA"},
    {"还没有音色", "音色がまだありません", "no voices yet"},
    {"选一个音色", "音色を選択", "pick a voice"},
    {"没有这条的话:%@(%@ · %@ · %@)",
     "この行がなければ:%@(%@ · %@ · %@)",
     "Without this row: %@ (%@ · %@ · %@)"},
    {"没有这条的话:没有别的绑定可以兜底。",
     "この行がなければ:フォールバックになるバインドはありません。",
     "Without this row: no other binding would serve."},
    {"航司代码里不能有冒号。", "航空会社コードにコロンは使えません。", "An airline code cannot contain a colon."},
    {"已解除 %@ · %@ · %@", "%@ · %@ · %@ を解除しました", "Removed %@ · %@ · %@"},
    {"已把 %d 条复制成文字", "%d 件をテキストとしてコピーしました", "Copied %d row(s) as text"},
    {"粘贴的内容有问题,一条都没有绑定:",
     "貼り付けた内容に問題があるため、1 件もバインドしていません:",
     "The pasted text has faults, so nothing was bound:"},
    {"剪贴板里没有绑定。每行要有:航司、语言、性别、音色,用制表符隔开。",
     "クリップボードにバインドがありません。1 行に航空会社・言語・性別・音色をタブ区切りで書いてください。",
     "There are no bindings on the clipboard. Each line needs airline, language, gender and voice, with tabs between."},
    {"粘贴会换掉 %d 条已有绑定的音色。继续?",
     "貼り付けると既存のバインド %d 件の音色が変わります。続けますか?",
     "Pasting replaces the voice of %d existing binding(s). Continue?"},
    {"粘贴了 %d 条绑定", "バインドを %d 件貼り付けました", "Pasted %d binding(s)"},
    {"第 %d 行:", "%d 行目:", "Line %d: "},
    {"至少要四列:航司、语言、性别、音色。",
     "航空会社・言語・性別・音色の 4 列が必要です。",
     "needs four columns: airline, language, gender, voice."},
    {"没写航司代码。", "航空会社コードがありません。", "the airline code is missing."},
    {"认不出这个语言:%@", "言語がわかりません:%@", "not a language: %@"},
    {"认不出这个性别:%@", "性別がわかりません:%@", "not a gender: %@"},
    {"音色库里没有这个音色:%@", "ライブラリにこの音色はありません:%@", "no such voice in the library: %@"},
    {"正在导出…", "書き出しています…", "Exporting…"},
    {"正在导入…", "取り込んでいます…", "Importing…"},
    {"全部 %d 条", "全 %d 件", "All %d rows"},
    {"只导出 %@ · %@ · %@", "%@ · %@ · %@ だけ", "Only %@ · %@ · %@"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> voiceRows() {
    return rows;
}

}  // namespace zepho
