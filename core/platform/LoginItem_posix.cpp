#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "core/platform/Bytes.h"
#include "core/platform/Files.h"
#include "core/platform/LoginItem.h"
#include "core/platform/PlatformPaths.h"

namespace zepho {
namespace {

// The rules of desktop entries quote twice: the argument within its command line, and then the whole
// line as a text value. A percent sign would begin a field code.
std::string quotedArgument(std::string_view argument) {
    std::string line = "\"";
    for (const char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') line += '\\';
        if (c == '%') line += '%';
        line += c;
    }
    line += '"';

    std::string value;
    for (const char c : line) {
        switch (c) {
            case '\\':
                value += "\\\\";
                break;
            case '\n':
                value += "\\n";
                break;
            case '\r':
                value += "\\r";
                break;
            case '\t':
                value += "\\t";
                break;
            default:
                value += c;
        }
    }
    return value;
}

}  // namespace

std::string loginItemPath() {
    // A relative XDG_CONFIG_HOME is to be ignored by the base directory rules.
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const std::string directory = config != nullptr && *config == '/'
                                      ? withTrailingSlash(config)
                                      : withTrailingSlash(homeDirectory()) + ".config/";
    return directory + "autostart/zephon.desktop";
}

std::string loginItemText(std::string_view program) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Zephon\n"
           "Exec=" +
           quotedArgument(program) +
           " --hidden\n"
           "Icon=zephon\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

void setLoginItem(bool wanted) {
    const std::string path = loginItemPath();
    if (!wanted) {
        std::error_code error;
        std::filesystem::remove(path, error);
        if (error) throw std::system_error(error, path);
        return;
    }
    const std::string program = executablePath();
    if (program.empty())
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory),
                                "the program's own path");
    const std::string text = loginItemText(program);
    const std::optional<Bytes> present = loadFileBytes(path);
    if (!present || asText(*present) != text) saveFileBytes(path, asBytes(text));
}

}  // namespace zepho
