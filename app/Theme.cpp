#include "app/Theme.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QFile>
#include <QFontDatabase>
#include <QFontInfo>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QStyleFactory>
#include <QSvgRenderer>
#include <string>

#include "app/QtText.h"

// The pictures lie in a static library, whose resources nobody else would pull in.
static void registerPictures() {
    Q_INIT_RESOURCE(resources);
}

namespace zepho {
namespace {

constexpr auto portalService = "org.freedesktop.portal.Desktop";
constexpr auto portalPath = "/org/freedesktop/portal/desktop";
constexpr auto portalSettings = "org.freedesktop.portal.Settings";
constexpr auto appearance = "org.freedesktop.appearance";
constexpr auto colorScheme = "color-scheme";
constexpr uint prefersDark = 1;

struct Shades {
    QColor window, base, alternate, button, text, dimText, mid, border, accent, accentText, link;
};

const Shades lightShades{0xf5f6f8, 0xffffff, 0xf7f8fa, 0xffffff, 0x1d232b, 0x69727d,
                         0xb9c0c9, 0xd3d8de, 0x1f66c1, 0xffffff, 0x1f66c1};
const Shades darkShades{0x1f2226, 0x17191c, 0x1c1f22, 0x2c3036, 0xe6e9ec, 0x98a1ab,
                        0x565d66, 0x3a4048, 0x3d7fd4, 0xffffff, 0x7db0f0};

QPalette paletteOf(const Shades& shades) {
    QPalette palette;
    palette.setColor(QPalette::Window, shades.window);
    palette.setColor(QPalette::WindowText, shades.text);
    palette.setColor(QPalette::Base, shades.base);
    palette.setColor(QPalette::AlternateBase, shades.alternate);
    palette.setColor(QPalette::Text, shades.text);
    palette.setColor(QPalette::Button, shades.button);
    palette.setColor(QPalette::ButtonText, shades.text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, shades.base);
    palette.setColor(QPalette::ToolTipText, shades.text);
    palette.setColor(QPalette::PlaceholderText, shades.dimText);
    palette.setColor(QPalette::Mid, shades.mid);
    palette.setColor(QPalette::Midlight, shades.border);
    palette.setColor(QPalette::Light, shades.button.lighter(110));
    palette.setColor(QPalette::Dark, shades.border.darker(115));
    palette.setColor(QPalette::Shadow, shades.border.darker(160));
    palette.setColor(QPalette::Highlight, shades.accent);
    palette.setColor(QPalette::HighlightedText, shades.accentText);
    palette.setColor(QPalette::Link, shades.link);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, shades.mid);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, shades.mid);
    return palette;
}

// What the style's own drawing leaves rough: room inside controls, and the side bar.
QString sheetOf(const Shades& shades) {
    return QString(
               "QPushButton{padding:5px 14px;min-height:1.2em;border:1px solid %1;border-radius:5px;"
               "background:palette(button)}"
               "QPushButton:hover{border-color:palette(highlight)}"
               "QPushButton:pressed{background:%1}"
               "QPushButton:focus{border-color:palette(highlight)}"
               "QPushButton:default{border-color:palette(highlight)}"
               "QPushButton:disabled{color:palette(mid)}"
               "QPushButton[primary=\"true\"]{background:palette(highlight);color:palette(highlighted-text);"
               "border-color:palette(highlight)}"
               "QPushButton[primary=\"true\"]:disabled{background:palette(midlight);border-color:palette(midlight)}"
               "QPushButton[primary=\"true\"]:focus{border-color:palette(text)}"
               "QLineEdit,QPlainTextEdit,QComboBox{padding:4px 6px;border:1px solid %1;"
               "border-radius:5px;background:palette(base);selection-background-color:palette(highlight)}"
               "QLineEdit:focus,QPlainTextEdit:focus,QComboBox:focus{border-color:palette(highlight)}"
               "QComboBox::drop-down{border:0;width:20px}"
               "QComboBox::down-arrow{image:url(:/zephon/icons/down.svg);width:10px;height:10px}"
               "QTableView,QListView{border:1px solid %1;border-radius:5px;background:palette(base)}"
               "QTableView::item{border:0;padding:0 6px}"
               "QTableView{outline:0;selection-background-color:palette(highlight);"
               "selection-color:palette(highlighted-text)}"
               "QCheckBox{spacing:8px}"
               "QCheckBox::indicator{width:15px;height:15px;border:1px solid palette(mid);border-radius:3px;"
               "background:palette(base)}"
               "QCheckBox::indicator:checked{background:palette(highlight);border-color:palette(highlight);"
               "image:url(:/zephon/icons/check.svg)}"
               "QCheckBox::indicator:focus{border-color:palette(highlight)}"
               "QHeaderView::section{padding:5px 6px;border:0;border-bottom:1px solid %1;"
               "background:palette(window);color:palette(placeholder-text)}"
               "#sidebar{border:0;border-right:1px solid %1;border-radius:0;background:palette(window);outline:0;"
               "padding:10px 8px}"
               "#sidebar::item{padding:8px 10px;border-radius:6px;color:palette(text);margin:1px 0}"
               "#sidebar::item:hover{background:palette(midlight)}"
               "#sidebar::item:selected{background:palette(highlight);color:palette(highlighted-text)}"
               "#statusLine{border-top:1px solid %1}"
               "#card{border:1px solid %1;border-radius:8px;background:palette(base)}"
               "QProgressBar{border:1px solid %1;border-radius:5px;background:palette(base);text-align:center}"
               "QProgressBar::chunk{background:palette(highlight);border-radius:4px}")
        .arg(shades.border.name());
}

QPixmap drawn(std::string_view name, const QColor& color, int side, double scale) {
    QFile file(":/zephon/icons/" + toQt(name) + ".svg");
    if (!file.open(QIODevice::ReadOnly)) return {};
    QByteArray svg = file.readAll();
    svg.replace("#000", color.name().toUtf8());
    QSvgRenderer renderer(svg);
    QPixmap picture(QSize(side, side) * scale);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    renderer.render(&painter);
    painter.end();
    picture.setDevicePixelRatio(scale);
    return picture;
}

}  // namespace

Theme::Theme(Scheme wanted) {
    registerPictures();
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    applyFonts();
    apply(wanted == Scheme::dark || (wanted == Scheme::system && isDark()));
    if (wanted == Scheme::system) askDesktop();
}

void Theme::askDesktop() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    bus.connect(portalService, portalPath, portalSettings, "SettingChanged", this,
                SLOT(settingChanged(QString, QString, QDBusVariant)));
    QDBusMessage call =
        QDBusMessage::createMethodCall(portalService, portalPath, portalSettings, "Read");
    call.setArguments({QString(appearance), QString(colorScheme)});
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* done) {
                const QDBusPendingReply<QDBusVariant> reply = *done;
                done->deleteLater();
                if (reply.isError()) return;
                // The portal wraps the value twice.
                QVariant value = reply.value().variant();
                if (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
                apply(value.toUInt() == prefersDark);
            });
}

void Theme::settingChanged(const QString& group, const QString& key, const QDBusVariant& value) {
    if (group == appearance && key == colorScheme) apply(value.variant().toUInt() == prefersDark);
}

void Theme::apply(bool dark) {
    const Shades& shades = dark ? darkShades : lightShades;
    QApplication::setPalette(paletteOf(shades));
    qApp->setStyleSheet(sheetOf(shades));
    emit changed();
}

bool Theme::isDark() {
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

Theme::Tones Theme::tones() {
    if (isDark()) return {0x4cc38a, 0xf0a94b, 0xf2706b};
    return {0x1e8e55, 0xb86a00, 0xc62f2f};
}

QIcon Theme::icon(std::string_view name) {
    const QPalette palette = QApplication::palette();
    QIcon icon;
    for (const double scale : {1.0, 2.0}) {
        icon.addPixmap(drawn(name, palette.color(QPalette::Text), 24, scale));
        icon.addPixmap(drawn(name, palette.color(QPalette::HighlightedText), 24, scale),
                       QIcon::Selected);
        icon.addPixmap(drawn(name, palette.color(QPalette::Mid), 24, scale), QIcon::Disabled);
    }
    return icon;
}

QIcon Theme::programIcon() {
    return QIcon(":/zephon/icons/zephon.svg");
}

QIcon Theme::trayIcon(bool running) {
    QIcon icon;
    for (const int side : {16, 22, 24, 32, 48, 64}) {
        QPixmap picture(side, side);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(side / 24.0, side / 24.0);
        // Five bars of a sound wave; flat while the service is stopped.
        QPainterPath bars;
        const double heights[] = {5, 11, 17, 11, 5};
        for (int i = 0; i < 5; ++i) {
            const double height = running ? heights[i] : 3.4;
            bars.addRoundedRect(QRectF(2.4 + i * 4.1, 12 - height / 2, 2.8, height), 1.4, 1.4);
        }
        painter.setPen(QPen(QColor(20, 24, 28, 200), 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(bars);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0xf4f6f8));
        painter.drawPath(bars);
        painter.end();
        icon.addPixmap(picture);
    }
    return icon;
}

void Theme::applyFonts() {
    static const QFont systemFont = QApplication::font();
    const UiLang lang = uiLang();
    QStringList families{systemFont.family()};
    const auto known = [](std::string_view name) { return QFontDatabase::hasFamily(toQt(name)); };
    if (const auto chosen = uiFontName(lang, known)) families.prepend(toQt(*chosen));
    // Without these the system picks any font that has the character, in any nation's form.
    families << (lang == UiLang::ja ? "Noto Sans CJK JP" : "Noto Sans CJK SC")
             << "Noto Color Emoji";
    QFont font = systemFont;
    font.setFamilies(families);
    QApplication::setFont(font);
}

QFont Theme::fixedFont() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // The system may answer with a name that stands for others, or with no monospaced font at all.
    const QString real = QFontInfo(font).family();
    QStringList families;
    if (QFontDatabase::isFixedPitch(real)) families << real;
    families << (uiLang() == UiLang::ja ? "Noto Sans Mono CJK JP" : "Noto Sans Mono CJK SC");
    families << QApplication::font().families();
    font.setFamilies(families);
    font.setStyleHint(QFont::Monospace);
    return font;
}

}  // namespace zepho
