// Texts of the service and preview pages.
#include "core/diag/WindowRows.h"

namespace zepho {

namespace {

// clang-format off
constexpr MessageRow rows[] = {
    {"已复制。", "コピーしました。", "Copied."},
    {"在这里写要念的字。把文本文件拖到这里也行。", "読み上げるテキストを入力してください。テキストファイルをここにドロップできます。",
     "Type what to say. You can also drop a text file here."},
    {"正在合成…", "合成しています…", "Synthesizing…"},
    {"上一条音频的波形", "直前の音声の波形", "Waveform of the last clip"},
    {"常用语言", "よく使う言語", "Common languages"},
    {"已保存:%@", "保存しました:%@", "Saved: %@"},
    {"存不下来:", "保存できません:", "Cannot save it: "},
    {"一次只能拖一个文本文件。", "テキストファイルは一度に 1 つだけドロップできます。", "Drop one text file at a time."},
    {"读不了这个文件:%@", "このファイルを読み込めません:%@", "Cannot read this file: %@"},
    {"这个文件太大了(上限 %d KB):%@", "このファイルは大きすぎます(上限 %d KB):%@", "This file is too large (limit %d KB): %@"},
    {"这个文件不是 UTF-8 文本:%@", "このファイルは UTF-8 のテキストではありません:%@", "This file is not UTF-8 text: %@"},
};
// clang-format on

}  // namespace

std::span<const MessageRow> speechRows() {
    return rows;
}

}  // namespace zepho
