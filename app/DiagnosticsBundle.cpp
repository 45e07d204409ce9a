#include "app/DiagnosticsBundle.h"

#include <QFile>
#include <QLocale>
#include <QSysInfo>
#include <QThread>
#include <algorithm>
#include <chrono>

#include <nlohmann/json.hpp>

#include "app/QtText.h"
#include "core/base/Json.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/pack/ZipWriter.h"
#include "core/platform/Clock.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

constexpr qint64 engineLogBytes = 262144;
constexpr auto removed = "(removed)";

std::string aboutText() {
    const Json about = {
        {"version", ZEPHO::version},
        {"built", ZEPHO::buildTime},
        {"collectedAt", formatIso8601(std::chrono::system_clock::now())},
        {"system", fromQt(QSysInfo::prettyProductName())},
        {"kernel", fromQt(QSysInfo::kernelType() + " " + QSysInfo::kernelVersion())},
        {"processor", fromQt(QSysInfo::currentCpuArchitecture())},
        {"processors", QThread::idealThreadCount()},
        {"locale", fromQt(QLocale::system().name())},
        {"toolkit", std::string("Qt ") + qVersion()},
        {"dataRoot", ZEPHOPaths::dataRoot()},
    };
    return jsonString(about, true) + "\n";
}

void removeKeys(Json& value) {
    if (value.is_object()) {
        for (auto& [key, member] : value.items()) {
            if (key == "deleteKey")
                member = removed;
            else
                removeKeys(member);
        }
    } else if (value.is_array()) {
        for (Json& element : value) removeKeys(element);
    }
}

std::string configText() {
    const std::optional<Bytes> bytes = loadFileBytes(ZEPHOPaths::configFile());
    std::optional<Json> root = bytes ? parseJsonObject(*bytes) : std::nullopt;
    // What cannot be read cannot be searched for keys, either.
    if (!root) return "(not readable)\n";
    removeKeys(*root);
    return jsonString(*root, true) + "\n";
}

std::string statsText(TtsService& service) {
    const ServiceStats stats = service.stats();
    const CacheStats cache = service.cache.stats();
    const EngineHealth health = service.engineHealth();
    const Json figures = {
        {"requests", {{"total", stats.total}, {"failed", stats.failed}}},
        {"queue", {{"depth", stats.queueDepth}, {"busy", stats.busy}}},
        {"prewarmPending", stats.prewarmPending},
        {"milliseconds",
         {{"p50", stats.p50Ms},
          {"p95", stats.p95Ms},
          {"audio", stats.totalAudioMs},
          {"synthesis", stats.totalSynthMs}}},
        {"cache",
         {{"count", cache.count},
          {"bytes", cache.bytes},
          {"budgetBytes", cache.budgetBytes},
          {"hits", cache.hits},
          {"misses", cache.misses},
          {"evictions", cache.evictions}}},
        {"voices", service.voices.count()},
        {"engine",
         {{"name", stats.engineName},
          {"placeholder", stats.placeholder},
          {"ready", health.ready},
          {"backend", health.backend},
          {"detail", health.detail},
          {"program", health.exePath},
          {"model", service.engineModelPath()}}},
    };
    return jsonString(figures, true) + "\n";
}

std::string logText() {
    std::string text;
    for (const LogEntry& line : AppLog::snapshot()) text += line.formatted() + "\n";
    return text;
}

// The end of the engine's log, from the beginning of a line.
std::string engineLogText() {
    QFile file(toQt(ZEPHOPaths::engineLog()));
    if (!file.open(QIODevice::ReadOnly)) return "(none)\n";
    const qint64 skipped = std::max<qint64>(0, file.size() - engineLogBytes);
    file.seek(skipped);
    if (skipped > 0) file.readLine(engineLogBytes);
    return file.read(engineLogBytes).toStdString();
}

void replaceAll(std::string& text, const std::string& from) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), removed);
}

}  // namespace

std::vector<DiagnosticsPart> collectDiagnostics(const AppConfig& config, TtsService& service) {
    std::vector<DiagnosticsPart> parts{
        {"about.json", aboutText()},        {"config.json", configText()},   {"log.txt", logText()},
        {"stats.json", statsText(service)}, {"engine.log", engineLogText()},
    };
    // A key may also stand where nobody meant it to, in a line of the log say.
    for (const HubShare& share : config.hubSharesSnapshot()) {
        if (share.deleteKey.empty()) continue;
        for (DiagnosticsPart& part : parts) replaceAll(part.text, share.deleteKey);
    }
    return parts;
}

void saveDiagnostics(const std::string& path, const std::vector<DiagnosticsPart>& parts) {
    ZipWriter archive;
    for (const DiagnosticsPart& part : parts) archive.add(part.name, asBytes(part.text));
    saveFileBytes(path, archive.finish());
}

}  // namespace zepho
