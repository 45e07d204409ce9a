// zephon: the window.
//
//   --hidden               start in the tray, for the start at login
//   --theme light|dark     instead of the desktop's own
//
// A second start shows the window of the first and ends with 0. Where a program without a window holds
// the data, it says that they are in use and ends with 1.
#include <QApplication>
#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QPixmapCache>
#include <QTimer>
#include <cstdio>
#include <cstdlib>

#include "app/AppState.h"
#include "app/MainWindow.h"
#include "app/QtText.h"
#include "app/SingleInstance.h"
#include "app/Theme.h"
#include "core/base/Constants.h"
#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/platform/MainThread.h"
#include "core/platform/Memory.h"
#include "core/platform/StopSignals.h"
#include "core/platform/Thread.h"

namespace {

using namespace zepho;

// How long a hidden start waits for a tray before it shows the window: desktops bring theirs up late.
constexpr int trayPatienceMs = 15000;
constexpr int pictureCacheKB = 2048;

// What Qt has to say becomes lines of the log like all others.
void logQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    const std::string category = context.category == nullptr ? "" : context.category;
    const std::string line = category == "default" ? fromQt(text) : category + ": " + fromQt(text);
    if (type == QtDebugMsg)
        AppLog::debug("qt", line);
    else if (type == QtInfoMsg)
        AppLog::info("qt", line);
    else if (type == QtWarningMsg)
        AppLog::warn("qt", line);
    else
        AppLog::error("qt", line);
}

void takeQtMessages() {
    // A font that lacks a script is no news: the next of the list has it.
    QLoggingCategory::setFilterRules("qt.text.font.db.warning=false");
    qInstallMessageHandler(logQtMessage);
}

int run(QApplication& program) {
    QCommandLineParser line;
    const QCommandLineOption hidden("hidden", "Start in the tray.");
    const QCommandLineOption look("theme", "light or dark, instead of the desktop's own.", "look",
                                  "system");
    line.addOptions({hidden, look});
    line.addHelpOption();
    line.addVersionOption();
    line.process(program);

    SingleInstance instance;
    if (instance.isTaken()) {
        if (instance.askToShow()) return 0;
        AppConfig config;
        config.load();
        setUiLang(config.uiLanguage);
        std::fprintf(stderr, "%s\n", T("另一个程序正在用这个数据目录。").c_str());
        return 1;
    }

    AppLog::setEchoToStderr(true);
    instance.listen();
    takeQtMessages();
    setMainThreadDispatcher([](std::function<void()> task) {
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    });
    Theme theme(line.value(look) == "dark"    ? Theme::Scheme::dark
                : line.value(look) == "light" ? Theme::Scheme::light
                                              : Theme::Scheme::system);
    AppState state;
    MainWindow window(state, theme);
    instance.showBy([&window] { window.bringUp(); });
    startThread("zephon signals", [&state] {
        waitForStopSignal();
        onMainThread([&state] { state.quit(); });
    }).detach();

    if (!line.isSet(hidden)) {
        window.show();
    } else if (!window.trayItem().isThere()) {
        QTimer::singleShot(trayPatienceMs, &window, [&window] {
            if (!window.trayItem().isThere()) window.bringUp();
        });
    }
    const int code = QApplication::exec();
    state.shutdown();
    instance.stopListening();
    // A line that is still inside the engine would hold an ordinary return for minutes.
    std::fflush(nullptr);
    std::_Exit(code);
}

}  // namespace

int main(int argc, char** argv) {
    limitMemoryPools();
    holdStopSignals();
    const MemoryCare care;
    QApplication program(argc, argv);
    // The style keeps a picture of every control in every size that the window has ever had.
    QPixmapCache::setCacheLimit(pictureCacheKB);
    QApplication::setApplicationName("zephon");
    QApplication::setApplicationVersion(ZEPHO::version);
    QApplication::setDesktopFileName("zephon");
    QApplication::setQuitOnLastWindowClosed(false);
    return run(program);
}
