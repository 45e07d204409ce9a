// What a person hands on when something does not work: version, settings, log, figures, and the end of
// the engine's own log, in one archive. Nothing in it gives anybody power over a share: the delete keys
// are taken out of every part.
//
// Free functions for a background thread: they read files. Main thread allowed for none.
#pragma once

#include <string>
#include <vector>

#include "core/config/AppConfig.h"
#include "core/service/TtsService.h"

namespace zepho {

struct DiagnosticsPart {
    std::string name;  // of the file in the archive
    std::string text;
};

[[nodiscard]] std::vector<DiagnosticsPart> collectDiagnostics(const AppConfig& config,
                                                              TtsService& service);

// Throws std::system_error.
void saveDiagnostics(const std::string& path, const std::vector<DiagnosticsPart>& parts);

}  // namespace zepho
