// How long the window keeps the main thread: a tick, a change of page, a letter in the cache's
// filter, a log that pours in; see scripts/bench-window.
//
//   bench-window fill DIRECTORY CLIPS   fills a cache directory
//   bench-window pages                  the rows about ticks, pages and the log, with the cache of the data root
//   bench-window filter                 the row about the filter
//
// A row is "what <tab> goal <tab> median <tab> longest <tab> CPU", in milliseconds. The time ends when
// the window is painted, on the offscreen platform; the goal is for the CPU time of the main thread,
// which other programs on the machine do not blur as much.
#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTableView>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "app/AppState.h"
#include "app/MainWindow.h"
#include "app/Theme.h"
#include "bench/FilledCache.h"
#include "core/base/TtsTypes.h"
#include "core/diag/AppLog.h"
#include "core/platform/MainThread.h"

namespace {

using namespace zepho;

constexpr double tickGoal = 2;
constexpr double pageGoal = 50;
constexpr int rounds = 15;
constexpr int logRate = 2000;  // lines a second
constexpr int logSeconds = 5;

// Of this thread alone.
double cpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double middle(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

class Stage {
public:
    Stage() : window(state, theme) {
        window.show();
        settle();
    }
    // Runs what waits, until the main thread has had nothing to do for a while.
    static void settle(int quietMs = 60) {
        QElapsedTimer quiet;
        quiet.start();
        while (quiet.elapsed() < quietMs)
            if (QCoreApplication::eventDispatcher()->processEvents(QEventLoop::AllEvents))
                quiet.restart();
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // The time of `act` with the layout and the painting that follow.
    void measure(const std::function<void()>& act) {
        settle();
        const double before = cpuMs();
        QElapsedTimer clock;
        clock.start();
        act();
        while (QCoreApplication::eventDispatcher()->processEvents(QEventLoop::AllEvents)) {
        }
        wall.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
        cpu.push_back(cpuMs() - before);
    }
    void row(const char* what, double goal) {
        std::printf("%s\t%g\t%.2f\t%.2f\t%.2f\n", what, goal, middle(wall),
                    *std::max_element(wall.begin(), wall.end()), middle(cpu));
        std::fflush(stdout);
        wall.clear();
        cpu.clear();
    }

    Theme theme{Theme::Scheme::light};
    AppState state;
    MainWindow window;
    std::vector<double> wall;
    std::vector<double> cpu;
};

void fillLog() {
    for (int i = 0; i < logRate; ++i) {
        AppLog::info("bench", "a line of a usual length, with the number " + std::to_string(i));
        RequestLog request;
        request.id = Uuid::make();
        request.time = std::chrono::system_clock::now();
        request.peer = "127.0.0.1";
        request.route = "GET /v1/tts";
        request.status = 200;
        AppLog::request(request);
    }
}

void measurePages() {
    Stage stage;
    fillLog();
    Stage::settle();
    for (const MainTabInfo& info : mainTabs) {
        if (info.tab == MainTab::service) continue;  // is there from the start
        stage.measure([&] { stage.window.showTab(info.tab); });
        stage.row(("first look at " + std::string(info.name)).c_str(), pageGoal);
    }
    for (const MainTabInfo& info : mainTabs) {
        for (int round = 0; round < rounds; ++round) {
            stage.window.showTab(info.tab == MainTab::service ? MainTab::preview
                                                              : MainTab::service);
            stage.measure([&] { stage.window.showTab(info.tab); });
        }
        stage.row(("page change to " + std::string(info.name)).c_str(), pageGoal);
        for (int round = 0; round < rounds; ++round) {
            // So that the tick has something new to show.
            (void)stage.state.service->synthesizeWav("A line", "en", TtsGender::female, 1);
            stage.measure([&] { stage.state.tick(); });
        }
        stage.row(("tick at " + std::string(info.name)).c_str(), tickGoal);
    }
}

// Lines and requests come in for a while; how much of the main thread that takes, and how long it
// cannot be spoken to at most.
void measureLog() {
    Stage stage;
    stage.window.showTab(MainTab::log);
    Stage::settle();
    std::atomic<bool> ended = false;
    std::thread writer([&ended] {
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < logRate * logSeconds; ++i) {
            AppLog::info("bench", "a line of a usual length, with the number " + std::to_string(i));
            std::this_thread::sleep_until(next += std::chrono::microseconds(1000000 / logRate));
        }
        ended = true;
    });
    QTimer heart;
    QElapsedTimer sinceBeat;
    std::vector<double> gaps;
    QObject::connect(&heart, &QTimer::timeout, [&] {
        gaps.push_back(static_cast<double>(sinceBeat.nsecsElapsed()) / 1e6);
        sinceBeat.restart();
    });
    const double before = cpuMs();
    sinceBeat.start();
    heart.start(5);
    while (!ended) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double busy = cpuMs() - before;
    writer.join();
    // A beat each 5 ms: what is longer is a wait.
    std::printf("CPU for each second of 2,000 log lines\t%g\t–\t–\t%.2f\n", 500.0,
                busy / logSeconds);
    std::printf("wait for the main thread meanwhile\t%g\t%.2f\t%.2f\t%.2f\n", pageGoal,
                middle(gaps), *std::max_element(gaps.begin(), gaps.end()), middle(gaps));
}

void measureFilter() {
    Stage stage;
    stage.window.showTab(MainTab::cache);
    auto* const table = stage.window.findChild<QTableView*>("cacheTable");
    auto* const filter = stage.window.findChild<QLineEdit*>("cacheFilter");
    const auto clips = static_cast<int>(stage.state.service->cache.stats().count);
    while (table->model()->rowCount() < clips)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const QString word = "flight 4711 to";
    for (qsizetype length = 1; length <= word.size(); ++length)
        stage.measure([&] { filter->setText(word.left(length)); });
    stage.row("a letter in the filter", pageGoal);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "fill" && argc == 4) {
        std::filesystem::remove_all(argv[2]);
        fillCacheDirectory(std::string(argv[2]) + "/", std::atoi(argv[3]));
        return 0;
    }
    // Painting follows a change at once, not after the pause that spares a display.
    ::setenv("QT_QPA_UPDATE_IDLE_TIME", "0", 1);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication program(argc, argv);
    setMainThreadDispatcher([](std::function<void()> task) {
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    });
    if (what == "pages") {
        measurePages();
        measureLog();
    } else if (what == "filter") {
        measureFilter();
    } else {
        std::fputs("bench-window fill DIRECTORY CLIPS | pages | filter\n", stderr);
        return 2;
    }
    std::fflush(nullptr);
    std::_Exit(0);
}
