#include "app/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QListWidget>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "app/StatusLine.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

constexpr QSize firstSize(1060, 720);
constexpr int leastWidth = 960;
constexpr int leastHeight = 560;

// Its size is what the window leaves it: an ordinary stack would lay out the text of every page for
// each label that changes, also of those out of sight.
class PageStack : public QStackedWidget {
public:
    using QStackedWidget::QStackedWidget;
    [[nodiscard]] bool hasHeightForWidth() const override { return false; }
    [[nodiscard]] QSize sizeHint() const override { return minimumSizeHint(); }
};

}  // namespace

MainWindow::MainWindow(AppState& state, Theme& theme)
    : app(state), tray(state), sidebar(new QListWidget(this)), stack(new PageStack(this)) {
    setObjectName("main");
    setWindowIcon(Theme::programIcon());
    setMinimumSize(leastWidth, leastHeight);
    resize(firstSize);
    sidebar->setObjectName("sidebar");
    sidebar->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    sidebar->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    for (const MainTabInfo& info : mainTabs) {
        auto* item = new QListWidgetItem(sidebar);
        item->setData(Qt::UserRole, toQt(info.name));
        stack->addWidget(new QWidget(stack));
    }
    auto* body = new QWidget(this);
    auto* beside = new QHBoxLayout;
    beside->setSpacing(0);
    beside->addWidget(sidebar);
    beside->addWidget(stack, 1);
    auto* below = new QVBoxLayout(body);
    below->setContentsMargins(0, 0, 0, 0);
    below->setSpacing(0);
    below->addLayout(beside, 1);
    below->addWidget(new StatusLine(app, body));
    setCentralWidget(body);
    connect(sidebar, &QListWidget::currentRowChanged, this, &MainWindow::rowChanged);
    connect(&app, &AppState::languageChanged, this, &MainWindow::setTexts);
    connect(&theme, &Theme::changed, this, &MainWindow::setIcons);
    connect(&tray, &Tray::showWindow, this, &MainWindow::bringUp);
    addShortcuts();
    setTexts();
    setIcons();
    showTab(MainTab::service);
    app.setDialogParent(this);
}

void MainWindow::addShortcuts() {
    for (int row = 0; row < static_cast<int>(mainTabs.size()); ++row) {
        auto* shortcut =
            new QShortcut(QKeySequence(Qt::CTRL | static_cast<Qt::Key>(Qt::Key_1 + row)), this);
        connect(shortcut, &QShortcut::activated, this,
                [this, row] { sidebar->setCurrentRow(row); });
    }
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, [this] {
        if (!page(tab()).escape() && app.playing) app.stopPlaying();
    });
    auto* close = new QShortcut(QKeySequence::Close, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);
    auto* quit = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q), this);
    connect(quit, &QShortcut::activated, this, &MainWindow::askToQuit);
}

void MainWindow::setTexts() {
    Theme::applyFonts();
    setWindowTitle(qT("Zephon —— Fish S2 Pro 语音服务"));
    sidebar->setAccessibleName(qT("页面"));
    int widest = 0;
    for (std::size_t i = 0; i < mainTabs.size(); ++i) {
        QListWidgetItem* const item = sidebar->item(static_cast<int>(i));
        item->setText(qT(mainTabs[i].titleKey));
        item->setToolTip(QString("Ctrl+%1").arg(i + 1));
        widest = std::max(widest, sidebar->fontMetrics().horizontalAdvance(item->text()));
    }
    sidebar->setFixedWidth(widest + 92);
}

void MainWindow::setIcons() {
    for (std::size_t i = 0; i < mainTabs.size(); ++i)
        sidebar->item(static_cast<int>(i))->setIcon(Theme::icon(mainTabs[i].name));
}

void MainWindow::bringUp() {
    if (isMinimized()) showNormal();
    show();
    raise();
    activateWindow();
}

MainTab MainWindow::tab() const {
    return mainTabs[static_cast<std::size_t>(std::max(0, sidebar->currentRow()))].tab;
}

void MainWindow::showTab(MainTab tab) {
    for (std::size_t i = 0; i < mainTabs.size(); ++i)
        if (mainTabs[i].tab == tab) sidebar->setCurrentRow(static_cast<int>(i));
}

Page& MainWindow::page(MainTab tab) {
    const auto place = static_cast<std::size_t>(
        std::find_if(mainTabs.begin(), mainTabs.end(),
                     [tab](const MainTabInfo& info) { return info.tab == tab; }) -
        mainTabs.begin());
    Page*& made = pages[place];
    if (made == nullptr) {
        const int row = static_cast<int>(place);
        made = makePage(tab, app);
        made->setObjectName(toQt(mainTabs[place].name));
        QWidget* const empty = stack->widget(row);
        stack->insertWidget(row, made);
        stack->removeWidget(empty);
        delete empty;
    }
    return *made;
}

void MainWindow::rowChanged(int row) {
    if (row < 0) return;
    Page& shown = page(tab());
    stack->setCurrentWidget(&shown);
    app.pageChanged(tab());
    shown.appear();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    if (!app.config->minimizeToTray || !tray.isThere()) return askToQuit();
    hide();
    tray.tellWhereWeAre();
}

void MainWindow::askToQuit() {
    if (!app.serverRunning) return app.quit();
    bringUp();
    app.confirm(qT("服务还在跑,确定退出?"), [this] { app.quit(); });
}

}  // namespace zepho
