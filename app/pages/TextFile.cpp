#include "app/pages/TextFile.h"

#include <stdexcept>
#include <string_view>

#include "core/diag/Language.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {

std::string textOfFile(const std::string& path) {
    const std::string file = lastPathComponent(path);
    const auto head = readFileHead(path, textFileLimit + 1);
    if (!head) throw std::runtime_error(TF("读不了这个文件:%@", file));
    if (head->bytes.size() > textFileLimit)
        throw std::runtime_error(TF("这个文件太大了(上限 %d KB):%@", textFileLimit / 1024, file));
    std::string_view text = asText(head->bytes);
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    if (!isValidUtf8(text) || text.find('\0') != std::string_view::npos)
        throw std::runtime_error(TF("这个文件不是 UTF-8 文本:%@", file));
    return std::string(text);
}

}  // namespace zepho
