#pragma once

#include <span>
#include <string_view>

/// The texts of the interface in its three languages. A message is identified by its Chinese text,
/// which is also what a Chinese reader sees; the look-up over these tables builds its hash maps
/// from them. Texts keep leading and trailing blanks, since callers join many of them to others.
/// Everything here is constant from the start of the program and may be read from any thread.

namespace zepho {

/// One message; the Chinese text is its key.
struct MessageRow {
    std::string_view zh, ja, en;
};

/// A message whose wording on this platform differs from its key, in Chinese too.
struct OverrideRow {
    std::string_view key, zh, ja, en;
};

/// The 513 rows of the main table in their order, in groups by feature. No key occurs twice.
std::span<const std::span<const MessageRow>> i18nRowGroups();

/// The 12 rows for a program that lives in the menu bar; they win over every other table.
std::span<const OverrideRow> macOverrideRows();

/// The 26 rows that exist on this platform only, asked after the main table.
std::span<const MessageRow> macExtraRows();

/// Texts that only the window shows, asked last.
std::span<const std::span<const MessageRow>> windowRowGroups();

}  // namespace zepho
