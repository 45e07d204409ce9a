#include "app/AppState.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/models/ModelCatalog.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

constexpr std::size_t keptRecords = 2000;
constexpr std::ptrdiff_t droppedAtOnce = 500;
constexpr int tickMs = 1000;
// A sound server or a disk that hangs must not keep the program from ending.
constexpr int endPatienceMs = 2000;
// Requests to the hub and to the engine wait most of their time.
constexpr int workerLimit = 16;

// A long-running program's log stays bounded, and is trimmed in batches.
template <class Record>
void appendBounded(std::vector<Record>& records, const Record& record) {
    records.push_back(record);
    if (records.size() > keptRecords)
        records.erase(records.begin(), records.begin() + droppedAtOnce);
}

void showMessage(QWidget* parent, const QString& title, const QString& text) {
    auto* box = new QMessageBox(QMessageBox::NoIcon, title, text, QMessageBox::NoButton, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->addButton(qT("确定"), QMessageBox::AcceptRole);
    box->open();
}

}  // namespace

AppState::AppState(Surroundings around)
    : surroundings(std::move(around)),
      config(std::make_shared<AppConfig>()),
      player(std::make_unique<WavPlayer>(surroundings.sound)),
      downloader(ModelDownloader::make()) {
    workers.setMaxThreadCount(workerLimit);
    turns.setMaxThreadCount(1);
    sounds.setMaxThreadCount(1);
    saves.setMaxThreadCount(1);
    ZEPHOPaths::ensureDirectories();
    config->load();
    setUiLang(config->uiLanguage);
    lastMessage = qT("还没有合成过。");
    service = TtsService::make(config);
    http = TtsHttpService::make(service);
    installLogHandlers();
    logLines = AppLog::snapshot();
    requestLines = AppLog::requestSnapshot();
    const QPointer<AppState> self(this);
    downloader->setOnProgress([self](const DownloadProgress& report) {
        if (!self) return;
        self->download = report;
        emit self->downloadChanged();
        if (report.stage == DownloadStage::done) self->reloadModels();
    });
    player->setOnFinished([self] {
        if (self) self->setPlaying(false);
    });
    refreshAll();
    if (config->autoStartServer) startServer();
    connect(&timer, &QTimer::timeout, this, &AppState::tick);
    timer.start(tickMs);
}

AppState::~AppState() {
    shutdown();
}

void AppState::installLogHandlers() {
    const QPointer<AppState> self(this);
    AppLog::setLineHandler([self](const LogEntry& line) {
        if (!self || self->isShutDown) return;
        appendBounded(self->logLines, line);
        emit self->logChanged();
    });
    AppLog::setRequestHandler([self](const RequestLog& record) {
        if (!self || self->isShutDown) return;
        appendBounded(self->requestLines, record);
        emit self->requestsChanged();
    });
}

// ---- lists and values

void AppState::refreshAll() {
    reloadVoices();
    reloadBindings();
    reloadCache();
    reloadModels();
    endpoints = http->allEndpoints();
    emit serverChanged();
    tick();
}

void AppState::tick() {
    if (isShutDown) return;
    stats = service->stats();
    health = service->engineHealth();
    setServerRunning(http->isRunning());
    setPlaying(player->isPlaying());
    emit ticked();
}

void AppState::pageChanged(MainTab to) {
    if (to == MainTab::voices || to == MainTab::broadcast || to == MainTab::hub) {
        reloadVoices();
        reloadBindings();
    } else if (to == MainTab::cache) {
        reloadCache();
    } else if (to == MainTab::models) {
        reloadModels();
    }
}

void AppState::reloadVoices() {
    voices = service->voices.all();
    emit voicesChanged();
}

void AppState::reloadBindings() {
    bindings = config->airlinesSnapshot();
    emit bindingsChanged();
}

void AppState::reloadCache() {
    const std::uint64_t turn = ++cacheTurn;
    inBackground(
        this,
        [service = service] {
            std::map<std::string, CacheEntry> now = service->cache.snapshot();
            auto entries = std::make_shared<CacheSnapshot>();
            entries->reserve(now.size());
            for (auto& [key, entry] : now) entries->emplace_back(key, std::move(entry));
            return std::shared_ptr<const CacheSnapshot>(std::move(entries));
        },
        [this, turn](Outcome<std::shared_ptr<const CacheSnapshot>> made) {
            if (turn != cacheTurn || !made.ok()) return;
            cacheEntries = std::move(*made.value);
            emit cacheChanged();
        });
}

void AppState::reloadModels() {
    installedModelFiles = installedModels();
    emit modelsChanged();
}

// ---- the service

void AppState::startServer() {
    const Outcome<Nothing> started = attempt([this] { http->start(); });
    if (started.ok()) endpoints = http->allEndpoints();
    serverRunning = started.ok();
    emit serverChanged();
    if (!started.ok()) alert(qT("服务起不来:") + toQt(started.error));
}

void AppState::stopServer() {
    http->stop();
    serverRunning = false;
    emit serverChanged();
}

void AppState::setServerRunning(bool running) {
    if (serverRunning == running) return;
    serverRunning = running;
    emit serverChanged();
}

void AppState::shutdown() {
    if (isShutDown) return;
    isShutDown = true;
    timer.stop();
    AppLog::setLineHandler({});
    AppLog::setRequestHandler({});
    // One that is just being opened would sound to the end.
    sounds.clear();
    sounds.waitForDone(endPatienceMs);
    player->stop();
    downloader->cancel();
    http->stop();
    // An engine that starts after this would outlive the program's orderly end.
    turns.clear();
    saves.waitForDone(endPatienceMs);
    service->shutdown();
}

void AppState::quit() {
    shutdown();
    // quit() would ask the window first, which would ask the person again.
    QCoreApplication::exit(0);
}

// ---- dialogs

void AppState::setDialogParent(QWidget* to) {
    window = to;
    windowKnown = true;
    for (const auto& open : std::exchange(waitingDialogs, {})) open();
}

void AppState::alert(const QString& text, const QString& title) {
    if (!windowKnown) {
        waitingDialogs.emplace_back([this, text, title] { showMessage(window, title, text); });
        return;
    }
    QWidget* const modal = QApplication::activeModalWidget();
    showMessage(modal != nullptr ? modal : window.data(), title, text);
}

void AppState::confirm(const QString& text, std::function<void()> then) {
    auto* box = new QMessageBox(QMessageBox::NoIcon, QStringLiteral("Zephon"), text,
                                QMessageBox::NoButton, window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    QPushButton* const yes = box->addButton(qT("确定"), QMessageBox::AcceptRole);
    QPushButton* const no = box->addButton(qT("取消"), QMessageBox::RejectRole);
    box->setDefaultButton(no);
    box->setEscapeButton(no);
    connect(box, &QMessageBox::finished, this, [box, yes, then = std::move(then)] {
        if (box->clickedButton() == yes) then();
    });
    box->open();
}

void AppState::openUrl(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty()) return;
    if (surroundings.open)
        surroundings.open(text);
    else
        QDesktopServices::openUrl(url);
}

void AppState::openPath(const std::string& path) {
    const QString name = toQt(path);
    const bool exists = directoryExists(path) || fileExists(path);
    const bool opened =
        exists && (surroundings.open ? surroundings.open(name)
                                     : QDesktopServices::openUrl(QUrl::fromLocalFile(name)));
    if (!opened) alert(qTF("打不开:%@", path));
}

void AppState::openEngineLog() {
    const std::string path = ZEPHOPaths::engineLog();
    if (fileExists(path)) return openPath(path);
    alert(qT("还没有引擎日志 —— 说明推理进程一次都没起来过。") + "\n" +
          qT("先确认 bin\\engine\\s2.exe 和 bin\\models\\*.gguf 都在。"));
}

// ---- what the pages ask for

void AppState::setLanguage(UiLang lang) {
    const bool untouched = lastMessage == qT("还没有合成过。");
    setUiLang(lang);
    ++langTick;
    if (untouched) setMessage(qT("还没有合成过。"));
    emit languageChanged();
    // The engine's own sentences come in the new language, too.
    tick();
}

void AppState::saveAndApply(QObject* page, std::function<void()> done) {
    saveConfig(page, [this, page, done = std::move(done)] {
        inTurn(
            page, [service = service] { service->applyConfig(); },
            [done](const Outcome<Nothing>&) { done(); });
    });
}

void AppState::saveConfig(QObject* page, std::function<void()> then) {
    runOn(
        saves, page, [config = config] { config->save(); },
        [then = std::move(then)](const Outcome<Nothing>&) {
            if (then) then();
        });
}

void AppState::setMessage(const QString& text) {
    lastMessage = text;
    emit messageChanged();
}

void AppState::setResult(const TtsResult& result) {
    lastResult = result;
    emit resultChanged();
}

void AppState::setPlaying(bool now) {
    if (playing == now) return;
    playing = now;
    emit playingChanged();
}

void AppState::play(SharedBytes wav, std::int64_t durationMs, std::function<void(bool)> then) {
    playedClip = wav;
    runOn(
        sounds, this,
        [player = player.get(), wav = std::move(wav), durationMs] {
            return player->play(wav, durationMs);
        },
        [this, then = std::move(then)](const Outcome<bool>& began) {
            const bool sounds = began.ok() && *began.value;
            setPlaying(player->isPlaying());
            if (then) then(sounds);
        });
}

void AppState::stopPlaying() {
    runOn(
        sounds, this, [player = player.get()] { player->stop(); },
        [this](const Outcome<Nothing>&) { setPlaying(player->isPlaying()); });
}

void AppState::startDownload(const ModelVariant& variant, bool fromMirror) {
    downloader->start(variant, fromMirror ? surroundings.modelMirror : surroundings.modelHost,
                      true);
    download = downloader->snapshot();
    emit downloadChanged();
}

void AppState::setHubKind(HubKind kind) {
    hubKind = kind;
    hubAll.clear();
    hubRefresh();
}

void AppState::setHubStatus(const QString& text) {
    hubStatus = text;
    emit hubChanged();
}

void AppState::hubRefresh() {
    hubBusy = true;
    setHubStatus(qT("正在拉取列表…"));
    const std::uint64_t turn = ++hubTurn;
    inBackground(
        this, [kind = hubKind, hub = surroundings.hub] { return hubList(kind, hub); },
        [this, turn](Outcome<HubResult> got) {
            // A list of the other kind, asked for before.
            if (turn != hubTurn) return;
            hubBusy = false;
            const bool ok = got.ok() && got.value->ok;
            if (ok) hubAll = std::move(got.value->items);
            const std::string why = got.ok() ? got.value->error : got.error;
            setHubStatus(ok ? QString() : qT("拉不到:") + toQt(why));
        });
}

void AppState::checkUpdate() {
    if (updateChecking) return;
    updateChecking = true;
    emit updateChanged();
    inBackground(
        this, [where = surroundings.updates] { return checkForUpdate(where); },
        [this](Outcome<UpdateInfo> got) {
            updateChecking = false;
            updateInfo = got.ok() ? std::move(*got.value) : UpdateInfo{};
            if (!got.ok()) updateInfo->error = got.error;
            emit updateChanged();
        });
}

void AppState::clearLog() {
    AppLog::clear();
    logLines.clear();
    requestLines.clear();
    emit logChanged();
    emit requestsChanged();
}

}  // namespace zepho
