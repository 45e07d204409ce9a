// Whether the desktop starts this program when its user logs in: an entry in the autostart directory
// of the desktop. Touches files; any thread, one at a time.
#pragma once

#include <string>
#include <string_view>

namespace zepho {

// $XDG_CONFIG_HOME or ~/.config, and in it autostart/zephon.desktop.
[[nodiscard]] std::string loginItemPath();

// The entry that starts `program` hidden, quoted so that any path comes out as one argument.
[[nodiscard]] std::string loginItemText(std::string_view program);

// Writes the entry for the running program, or removes it. What is as wanted already stays untouched;
// an entry of another place or a disabled one does not count as that. Throws std::system_error.
void setLoginItem(bool wanted);

}  // namespace zepho
