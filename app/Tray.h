// The program's item in the desktop's tray, with its menu.
//
// A desktop may have no tray, or get one later: isThere() tells how it is now.
#pragma once

#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

#include "app/AppState.h"

namespace zepho {

class Tray : public QObject {
    Q_OBJECT

public:
    explicit Tray(AppState& state);

    [[nodiscard]] bool isThere() const;
    // A few words from the tray, the first time that the window goes there.
    void tellWhereWeAre();
    [[nodiscard]] const QMenu& contextMenu() const { return menu; }

signals:
    void showWindow();

private:
    void lookForTray();
    void refresh();

    AppState& app;
    QMenu menu;
    QSystemTrayIcon item;
    QTimer search;
    QAction* const status;
    QAction* const warning;
    QAction* const show;
    QAction* const server;
    QAction* const end;
    bool told = false;
};

}  // namespace zepho
