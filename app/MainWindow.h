// The main window: side bar, pages, status line, and what closing it means.
#pragma once

#include <QMainWindow>
#include <array>

#include "app/AppState.h"
#include "app/Page.h"
#include "app/Theme.h"
#include "app/Tray.h"

class QListWidget;
class QStackedWidget;

namespace zepho {

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(AppState& state, Theme& theme);

    // Shows it in front of everything, wherever it was.
    void bringUp();
    void showTab(MainTab tab);
    [[nodiscard]] MainTab tab() const;
    // Made at its first use.
    Page& page(MainTab tab);
    [[nodiscard]] Tray& trayItem() { return tray; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void rowChanged(int row);
    void setTexts();
    void setIcons();
    void addShortcuts();
    // Ends the program, after a question while the service runs.
    void askToQuit();

    AppState& app;
    Tray tray;
    QListWidget* const sidebar;
    QStackedWidget* const stack;
    std::array<Page*, mainTabs.size()> pages{};
};

}  // namespace zepho
