#include "app/Tray.h"

#include "app/QtText.h"
#include "app/Theme.h"

namespace zepho {
namespace {

constexpr int searchMs = 2000;

}  // namespace

Tray::Tray(AppState& state)
    : app(state),
      status(menu.addAction(QString())),
      warning(menu.addAction(QString())),
      show((menu.addSeparator(), menu.addAction(QString()))),
      server(menu.addAction(QString())),
      end((menu.addSeparator(), menu.addAction(QString()))) {
    status->setEnabled(false);
    warning->setEnabled(false);
    connect(show, &QAction::triggered, this, &Tray::showWindow);
    connect(server, &QAction::triggered, this, [this] {
        if (app.serverRunning)
            app.stopServer();
        else
            app.startServer();
    });
    connect(end, &QAction::triggered, this, [this] { app.quit(); });
    connect(&item, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason how) {
                if (how == QSystemTrayIcon::Trigger || how == QSystemTrayIcon::DoubleClick)
                    emit showWindow();
            });
    item.setContextMenu(&menu);
    connect(&app, &AppState::ticked, this, &Tray::refresh);
    connect(&app, &AppState::serverChanged, this, &Tray::refresh);
    connect(&app, &AppState::languageChanged, this, &Tray::refresh);
    refresh();
    connect(&search, &QTimer::timeout, this, &Tray::lookForTray);
    lookForTray();
    search.start(searchMs);
}

bool Tray::isThere() const {
    return QSystemTrayIcon::isSystemTrayAvailable() && item.isVisible();
}

void Tray::lookForTray() {
    const bool available = QSystemTrayIcon::isSystemTrayAvailable();
    if (available != item.isVisible()) item.setVisible(available);
}

void Tray::tellWhereWeAre() {
    if (std::exchange(told, true)) return;
    item.showMessage(qT("Zephon 收进了托盘"), qT("服务还在后台跑。双击托盘图标可以叫回来。"),
                     Theme::programIcon());
}

void Tray::refresh() {
    const bool running = app.serverRunning;
    const QString first = app.endpoints.empty() ? QString() : toQt(app.endpoints.front());
    status->setText(running ? qT("状态:运行中 —— ") + first : qT("状态:已停止"));
    warning->setText(qT("⚠ 占位波形(还没放模型)"));
    warning->setVisible(app.stats.placeholder);
    show->setText(qT("显示主窗口"));
    server->setText(running ? qT("停止服务") : qT("启动服务"));
    end->setText(qT("退出程序"));
    if (item.toolTip() != status->text() || item.icon().isNull()) {
        item.setIcon(Theme::trayIcon(running));
        item.setToolTip(status->text());
    }
}

}  // namespace zepho
