// Colours, fonts and pictures of the window: light or dark as the desktop, the fonts by the language.
//
// Main thread only. Icons are drawn from our own SVG files in the colours of the palette.
#pragma once

#include <QColor>
#include <QDBusVariant>
#include <QFont>
#include <QIcon>
#include <QObject>
#include <string_view>

namespace zepho {

class Theme : public QObject {
    Q_OBJECT

public:
    enum class Scheme { system, light, dark };

    struct Tones {
        QColor good;
        QColor warning;
        QColor bad;
    };

    // Takes over the look of the application, and follows the desktop where `wanted` says so.
    explicit Theme(Scheme wanted = Scheme::system);

    // For text and marks on the window's own background.
    static Tones tones();
    static bool isDark();
    // One of app/icons/, in the text colour, and in the highlighted text's where it is selected.
    static QIcon icon(std::string_view name);
    static QIcon programIcon();
    // The glyph of the tray: drawn so that it reads on light and on dark panels.
    static QIcon trayIcon(bool running);
    // Makes Han text take the glyph forms of the interface language.
    static void applyFonts();
    // For logs and commands, Han text in the language's forms, too.
    static QFont fixedFont();

signals:
    void changed();

private slots:
    void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

private:
    void askDesktop();
    void apply(bool dark);
};

}  // namespace zepho
