// As the other test programs, and with an application on the offscreen platform.
#include <QApplication>
#include <cstdlib>

#include <gtest/gtest.h>

#include "core/diag/Language.h"
#include "core/platform/MainThread.h"
#include "tests/support/TempDir.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const zepho::test::TempDir temp;
    ::setenv("TMPDIR", temp.path().c_str(), 1);
    const zepho::test::TempDir root;
    for (const char* name : {"ZEPHO_HOME", "HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
        ::setenv(name, root.path().c_str(), 1);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    ::unsetenv("ZEPHO_ENGINE_DIR");
    // A desktop's own session must not show in a test.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
    zepho::setUiLang(zepho::UiLang::en);
    QApplication program(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    zepho::setMainThreadDispatcher([](std::function<void()> task) {
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    });
    return RUN_ALL_TESTS();
}
