#pragma once

#include <span>

#include "core/diag/MessageTable.h"

/// The groups that the main message table is made of, one translation unit each. Only
/// MessageTable.cpp joins them; everyone else reads the joined list through i18nRowGroups().
/// The rows are compile-time constants, so any thread may read them at any time.

namespace zepho {

/// Window and tab titles, service controls and the preview, voices, request log, broadcast and
/// cache pages.
std::span<const MessageRow> pageRows();

/// Clone packs, failures of the engine, of the queue and of audio input, engine downloads and the
/// self test.
std::span<const MessageRow> engineRows();

/// Client snippets, editing of voices and bindings, the settings page, the models page and the
/// status line.
std::span<const MessageRow> settingsRows();

/// Clearing the cache, unloading the model, and the hub where people share voices and bindings.
std::span<const MessageRow> hubRows();

/// First download, update check, speed methods, catalogue notes, download stages, tray menu and
/// the short words that many pages share.
std::span<const MessageRow> updateRows();

}  // namespace zepho
