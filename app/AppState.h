// What the window knows and does: owns the core's objects, keeps what the pages show up to date, and
// starts and stops the HTTP service. The pages see nothing of the core but through it.
//
// Lives on the main thread, and so does everything it publishes; each signal tells that a group of
// published values has changed. inBackground() is the only way to longer work. Alerts and questions
// open on the window and return at once; the answer comes to a callback.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/MainTab.h"
#include "app/Outcome.h"
#include "core/audio/WavPlayer.h"
#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/http/TtsHttpService.h"
#include "core/models/ModelDownloader.h"
#include "core/models/UpdateCheck.h"
#include "core/pack/HubClient.h"
#include "core/platform/MainThread.h"
#include "core/service/TtsService.h"

namespace zepho {

// The clips of the cache by their keys, in the order of these. Shared, as there may be a great many.
using CacheSnapshot = std::vector<std::pair<std::string, CacheEntry>>;

// The outside world as the program finds it; tests put their own in its place.
struct Surroundings {
    HubService hub;
    UpdateAddresses updates;
    std::string modelHost = hostOfficial;
    std::string modelMirror = hostMirror;
    SoundOutput sound = SoundOutput::card;
    // Opens an address in the browser, a directory in the file manager, a file in its program.
    std::function<bool(const QString& address)> open;
};

class AppState : public QObject {
    Q_OBJECT

public:
    explicit AppState(Surroundings around = {});
    ~AppState() override;

    // Reloads every list, then ticks.
    void refreshAll();
    // Reloads the values that change by themselves.
    void tick();
    void pageChanged(MainTab to);
    void reloadVoices();
    void reloadBindings();
    // The copy of a large cache takes a while, and so comes a moment later.
    void reloadCache();
    void reloadModels();

    void startServer();
    void stopServer();
    // The orderly end: timer, log, playback, listener, service. Once; the end of the object, too.
    void shutdown();
    // shutdown(), and the end of the program.
    void quit();

    // A message with one button.
    void alert(const QString& text, const QString& title = QStringLiteral("Zephon"));
    // A question; `then` runs on yes only.
    void confirm(const QString& text, std::function<void()> then);
    // Where alerts and questions open; those from before wait for it.
    void setDialogParent(QWidget* window);
    [[nodiscard]] QWidget* dialogParent() const { return window; }
    // Text that is no address does nothing.
    void openUrl(const QString& text);
    // An alert tells what cannot be opened.
    void openPath(const std::string& path);
    // The output of the inference process.
    void openEngineLog();

    void setLanguage(UiLang lang);
    // Saves the configuration, lets the service take it over, and then runs `done` if `page` lives.
    void saveAndApply(QObject* page, std::function<void()> done);
    // Writes the configuration on another thread; what is asked for is written before the program
    // ends, unless the disk hangs. `then` runs if `page` lives.
    void saveConfig(QObject* page, std::function<void()> then = {});
    void setMessage(const QString& text);
    void setResult(const TtsResult& result);
    // Plays the clip and tells `then` whether it began.
    void play(SharedBytes wav, std::int64_t durationMs, std::function<void(bool)> then = {});
    void stopPlaying();
    void startDownload(const ModelVariant& variant, bool fromMirror);
    void hubRefresh();
    void setHubKind(HubKind kind);
    void setHubStatus(const QString& text);
    void checkUpdate();
    void clearLog();

    // Runs `work` on another thread and then, if `page` still lives, `done` with its Outcome here.
    template <class Work, class Done>
    void inBackground(QObject* page, Work work, Done done) {
        runOn(workers, page, std::move(work), std::move(done));
    }
    // The same, one after the other in the order of the calls: for what restarts the engine. What has
    // not begun when the program ends does not run.
    template <class Work, class Done>
    void inTurn(QObject* page, Work work, Done done) {
        runOn(turns, page, std::move(work), std::move(done));
    }

    // Constant after construction; each guards itself.
    const Surroundings surroundings;
    const std::shared_ptr<AppConfig> config;
    const std::unique_ptr<WavPlayer> player;
    const std::shared_ptr<ModelDownloader> downloader;
    std::shared_ptr<TtsService> service;
    std::shared_ptr<TtsHttpService> http;

    // Published. The pages only read.
    ServiceStats stats;
    EngineHealth health;
    bool serverRunning = false;
    std::vector<std::string> endpoints;
    std::vector<LogEntry> logLines;
    std::vector<RequestLog> requestLines;
    std::vector<VoiceInfo> voices;
    std::vector<Binding> bindings;
    std::shared_ptr<const CacheSnapshot> cacheEntries = std::make_shared<CacheSnapshot>();
    std::vector<std::string> installedModelFiles;
    DownloadProgress download;
    std::optional<TtsResult> lastResult;
    QString lastMessage;
    bool playing = false;
    SharedBytes playedClip;  // the one that play() was given last
    std::vector<HubItem> hubAll;
    HubKind hubKind = HubKind::voices;
    bool hubBusy = false;
    QString hubStatus;
    std::optional<UpdateInfo> updateInfo;
    bool updateChecking = false;
    int langTick = 0;

signals:
    void ticked();         // stats, health
    void serverChanged();  // serverRunning, endpoints
    void voicesChanged();
    void bindingsChanged();
    void cacheChanged();
    void modelsChanged();
    void downloadChanged();
    void resultChanged();   // lastResult
    void messageChanged();  // lastMessage
    void playingChanged();
    void hubChanged();  // hubAll, hubKind, hubBusy, hubStatus
    void updateChanged();
    void logChanged();
    void requestsChanged();
    void languageChanged();  // langTick

private:
    template <class Work, class Done>
    void runOn(QThreadPool& pool, QObject* page, Work work, Done done) {
        const QPointer<QObject> alive(page);
        pool.start([alive, work = std::move(work), done = std::move(done)]() mutable {
            // A shared pointer, as a function that is posted must be copyable.
            auto outcome = std::make_shared<decltype(attempt(work))>(attempt(work));
            onMainThread([alive, outcome, done = std::move(done)]() mutable {
                if (alive) done(std::move(*outcome));
            });
        });
    }
    void installLogHandlers();
    void setServerRunning(bool running);
    void setPlaying(bool now);

    QTimer timer;
    QPointer<QWidget> window;
    bool windowKnown = false;
    std::vector<std::function<void()>> waitingDialogs;
    std::uint64_t hubTurn = 0;    // of the last list that was asked for
    std::uint64_t cacheTurn = 0;  // of the last snapshot that was asked for
    bool isShutDown = false;
    // The last members: their end waits for what runs.
    QThreadPool workers;
    QThreadPool turns;
    QThreadPool saves;
    QThreadPool sounds;  // plays and stops, in the order of the calls
};

}  // namespace zepho
