// A window of its own over a real core in an empty data root, with the placeholder engine, a sound
// device that nobody hears, and a port that was free a moment ago.
#pragma once

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QDropEvent>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTcpServer>
#include <QTest>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/AppState.h"
#include "app/MainWindow.h"
#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"

namespace zepho::test {

class WindowFixture : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(ZEPHOPaths::dataRoot());
        ZEPHOPaths::ensureDirectories();
        AppLog::clear();
        AppConfig config;
        config.load();
        config.port = pickedPort = freePort();
        config.bindAddress = std::string("127.0.0.1");
        config.uiLanguage = UiLang::en;
        configure(config);
        config.save();
        around.sound = SoundOutput::silent;
        // Refuses at once: no test asks the real one.
        around.hub.address = "http://127.0.0.1:1/API/hub.php";
        around.open = [this](const QString& address) {
            opened.push_back(address);
            return true;
        };
        start();
    }
    void TearDown() override {
        stop();
        setUiLang(UiLang::en);
    }
    // What a test wants otherwise in the configuration at the start.
    virtual void configure(AppConfig&) {}
    // A port of the test's own, on which the start may well fail.
    void usePort(AppConfig& config, int port) {
        config.port = port;
        pickedPort = 0;
    }

    void start() {
        state = std::make_unique<AppState>(around);
        // Between the look and the start another program may have taken the port.
        for (int attempt = 0; attempt < 20 && portWasLost(); ++attempt) {
            state->config->port = pickedPort = freePort();
            state->config->save();
            state.reset();
            state = std::make_unique<AppState>(around);
        }
        window = std::make_unique<MainWindow>(*state, theme);
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }
    void stop() {
        window.reset();
        state.reset();
    }

    Page& openPage(MainTab tab) {
        window->showTab(tab);
        return window->page(tab);
    }
    // The visible button of this text, "&&" as on screen.
    static QAbstractButton* button(QWidget& in, const QString& text) {
        for (QAbstractButton* found : in.findChildren<QAbstractButton*>())
            if (found->isVisible() && found->text().replace("&&", "&") == text) return found;
        return nullptr;
    }
    static void click(QWidget& in, const QString& text) {
        QAbstractButton* const found = button(in, text);
        ASSERT_NE(found, nullptr) << fromQt(text);
        ASSERT_TRUE(found->isEnabled()) << fromQt(text);
        QTest::mouseClick(found, Qt::LeftButton);
    }
    // Tables and lists have members of that name that hide it.
    static QAbstractItemModel& rowsOf(QAbstractItemView* view) { return *view->model(); }
    static bool eventually(const std::function<bool()>& holds) {
        return QTest::qWaitFor(holds, 30000);
    }
    // The dialog in front, when there is one of this type.
    template <class Dialog>
    static Dialog* dialog() {
        for (QWidget* top : QApplication::topLevelWidgets())
            if (auto* found = qobject_cast<Dialog*>(top); found != nullptr && found->isVisible())
                return found;
        return nullptr;
    }
    // The text of the message in front, waited for; it is answered with the button of this text.
    static std::string answerMessage(const QString& with = "OK") {
        if (!eventually([] { return dialog<QMessageBox>() != nullptr; })) return "no message";
        auto* const box = dialog<QMessageBox>();
        const std::string text = fromQt(box->text());
        for (QAbstractButton* choice : box->buttons())
            if (choice->text() == with) choice->click();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return text;
    }
    static bool noMessage() { return dialog<QMessageBox>() == nullptr; }
    // Drops these files; false when they are not accepted.
    static bool drop(QWidget* on, const QStringList& paths, QPoint at) {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString& path : paths) urls << QUrl::fromLocalFile(path);
        data.setUrls(urls);
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(on, &enter);
        QDropEvent event(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        if (enter.isAccepted()) QApplication::sendEvent(on, &event);
        return enter.isAccepted();
    }
    // Chooses the files in the open file dialog.
    static void chooseInDialog(const QStringList& files) {
        ASSERT_TRUE(eventually([] { return dialog<QFileDialog>() != nullptr; }));
        auto* const open = dialog<QFileDialog>();
        auto* const name = open->findChild<QLineEdit*>("fileNameEdit");
        ASSERT_NE(name, nullptr);
        name->setText(files.size() == 1 ? files.first() : "\"" + files.join("\" \"") + "\"");
        QMetaObject::invokeMethod(open, "accept");
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    static int freePort() {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        return probe.serverPort();
    }
    [[nodiscard]] bool portWasLost() const {
        return state->config->autoStartServer && !state->serverRunning &&
               state->config->port.get() == pickedPort;
    }

    std::int64_t pickedPort = 0;  // none where the test has its own
    Theme theme{Theme::Scheme::light};
    Surroundings around;
    std::vector<QString> opened;  // what the desktop was asked to open
    std::unique_ptr<AppState> state;
    std::unique_ptr<MainWindow> window;
};

}  // namespace zepho::test
