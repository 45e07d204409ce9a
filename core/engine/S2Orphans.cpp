#include "core/engine/S2Orphans.h"

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include "core/base/Json.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/engine/S2Process.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr std::string_view packagedPlace = "/lib/zephon/engine/";

std::optional<std::int32_t> recordedPid() {
    const std::optional<Bytes> bytes = loadFileBytes(ZEPHOPaths::enginePidFile());
    if (!bytes) return std::nullopt;
    const std::optional<std::int64_t> number = parseDecimalInteger(trimmedView(asText(*bytes)));
    if (!number || *number <= 1 || *number > INT32_MAX) return std::nullopt;
    return static_cast<std::int32_t>(*number);
}

}  // namespace

bool looksLikeOurEngine(std::string_view program) {
    const std::size_t slash = program.rfind('/');
    if (slash == std::string_view::npos || program.substr(slash + 1) != "s2") return false;
    if (program.find(packagedPlace) != std::string_view::npos) return true;
    const std::string own = ZEPHOPaths::engineDir() + "s2";
    if (program == own) return true;
    // A relative data root: the process was started by its absolute path.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(own, error);
    return !error && program == absolute.native();
}

std::vector<std::int32_t> orphanedEngines(std::span<const ProcessEntry> list, std::int32_t self) {
    std::vector<std::int32_t> found;
    for (const ProcessEntry& process : list)
        if (process.orphaned && process.pid != self && looksLikeOurEngine(process.program))
            found.push_back(process.pid);
    return found;
}

void sweepOrphans() {
    // A set: one that was found by its record may still be in the list while it dies.
    std::set<std::int32_t> killed;
    if (const std::optional<std::int32_t> recorded = recordedPid())
        if (killProcessIf(*recorded, looksLikeOurEngine)) killed.insert(*recorded);
    removeS2PidFile();
    for (const std::int32_t pid : orphanedEngines(listProcesses(), ownProcessId()))
        if (killProcessIf(pid, looksLikeOurEngine)) killed.insert(pid);
    if (!killed.empty())
        AppLog::warn("s2", "killed " + std::to_string(killed.size()) +
                               " orphaned inference process(es) left by a previous run");
}

}  // namespace zepho
