#include "ui/Appearance.h"

#include <QApplication>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QPainter>
#include <QPalette>
#include <QProxyStyle>
#include <QSettings>
#include <QStandardPaths>
#include <QStyleFactory>
#include <QStyleHints>
#include <QStyleOption>

namespace varnel {

namespace {

constexpr const char* kPortalService = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kPortalSettings = "org.freedesktop.portal.Settings";
constexpr const char* kAppearanceGroup = "org.freedesktop.appearance";
constexpr const char* kColorSchemeKey = "color-scheme";
// SLOT() of the handler, spelt as QtDBus matches it (no spaces).
constexpr const char* kChangedSlot = "1portalSettingChanged(QDBusMessage)";

ColorScheme lastRead = ColorScheme::unknown;

// The portal's values: 1 prefers dark, 2 prefers light, 0 states nothing.
ColorScheme fromPortal(QVariant value) {
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    bool ok = false;
    const uint number = value.toUInt(&ok);
    if (!ok)
        return ColorScheme::unknown;
    return number == 1   ? ColorScheme::dark
           : number == 2 ? ColorScheme::light
                         : ColorScheme::unknown;
}

// GTK's and KDE's own files, for a desktop without the portal.
ColorScheme fromDesktopFiles() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    for (const char* file : {"gtk-4.0/settings.ini", "gtk-3.0/settings.ini"}) {
        const QString path = QDir(config).filePath(QString::fromLatin1(file));
        if (!QFileInfo::exists(path))
            continue;
        const QSettings gtk(path, QSettings::IniFormat);
        const QString prefersDark =
            gtk.value("Settings/gtk-application-prefer-dark-theme").toString().toLower();
        if (prefersDark == "1" || prefersDark == "true")
            return ColorScheme::dark;
        const QString theme = gtk.value("Settings/gtk-theme-name").toString().toLower();
        if (theme.endsWith("-dark") || theme.endsWith(":dark"))
            return ColorScheme::dark;
        if (!theme.isEmpty() || !prefersDark.isEmpty())
            return ColorScheme::light;
    }
    const QString kde = QDir(config).filePath("kdeglobals");
    if (QFileInfo::exists(kde)) {
        const QString scheme =
            QSettings(kde, QSettings::IniFormat).value("General/ColorScheme").toString();
        if (!scheme.isEmpty())
            return scheme.contains("dark", Qt::CaseInsensitive) ? ColorScheme::dark
                                                                : ColorScheme::light;
    }
    return ColorScheme::unknown;
}

QPalette darkPalette() {
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(37, 37, 40));
    palette.setColor(QPalette::WindowText, QColor(230, 230, 232));
    palette.setColor(QPalette::Base, QColor(28, 28, 30));
    palette.setColor(QPalette::AlternateBase, QColor(44, 44, 48));
    palette.setColor(QPalette::Text, QColor(230, 230, 232));
    palette.setColor(QPalette::Button, QColor(48, 48, 52));
    palette.setColor(QPalette::ButtonText, QColor(230, 230, 232));
    palette.setColor(QPalette::ToolTipBase, QColor(48, 48, 52));
    palette.setColor(QPalette::ToolTipText, QColor(230, 230, 232));
    palette.setColor(QPalette::PlaceholderText, QColor(140, 140, 146));
    palette.setColor(QPalette::Light, QColor(70, 70, 76));
    palette.setColor(QPalette::Midlight, QColor(58, 58, 62));
    palette.setColor(QPalette::Mid, QColor(30, 30, 32));
    palette.setColor(QPalette::Dark, QColor(20, 20, 22));
    palette.setColor(QPalette::Shadow, QColor(0, 0, 0));
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(120, 120, 126));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(120, 120, 126));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(120, 120, 126));
    // Fusion etches disabled text with the Light colour; keep that invisible on dark.
    palette.setColor(QPalette::Disabled, QPalette::Light, QColor(37, 37, 40));
    return palette;
}

// The platform's style, with an outline on unchecked check boxes and radio buttons drawn from
// the text colour: Fusion derives its outline from the window colour, which on a dark window
// leaves an empty box nearly the colour around it.
class VarnelStyle : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        const bool box = element == PE_IndicatorCheckBox;
        if ((!box && element != PE_IndicatorRadioButton) || !(option->state & State_Off))
            return;
        QColor edge = option->palette.color(QPalette::WindowText);
        edge.setAlphaF(option->state & State_Enabled ? 0.55f : 0.3f);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(edge, 1));
        painter->setBrush(Qt::NoBrush);
        const QRectF area = QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5);
        if (box)
            painter->drawRoundedRect(area.adjusted(0, 0, -1, -1), 2, 2);
        else
            painter->drawEllipse(area.adjusted(1, 1, -1, -1));
        painter->restore();
    }
};

} // namespace

QColor accentColor(Accent accent) {
    switch (accent) {
    case Accent::purple:
        return {175, 82, 222};
    case Accent::green:
        return {48, 176, 80};
    case Accent::orange:
        return {255, 149, 0};
    case Accent::blue:
        break;
    }
    return {10, 132, 255};
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

void applyAppearance(Appearance appearance, Accent accent) {
    static const QString platformStyle = QApplication::style()->name();
    static const QPalette platformPalette = QApplication::palette();
    const ColorScheme scheme = appearance == Appearance::dark    ? ColorScheme::dark
                               : appearance == Appearance::light ? ColorScheme::light
                                                                 : DesktopColorScheme::current();
    const bool system = appearance == Appearance::system;
    QStyle* base = QStyleFactory::create(system ? platformStyle : QStringLiteral("Fusion"));
    if (!base)
        base = QStyleFactory::create(QStringLiteral("Fusion"));
    QPalette palette;
    if (scheme == ColorScheme::dark)
        palette = darkPalette();
    else if (scheme == ColorScheme::light)
        palette = system && !isDark(platformPalette) ? platformPalette : base->standardPalette();
    else
        palette = platformPalette;
    palette.setColor(QPalette::Highlight, accentColor(accent));
    if (scheme != ColorScheme::unknown) {
        palette.setColor(QPalette::HighlightedText, Qt::white);
        palette.setColor(QPalette::Link, accentColor(accent));
    }
    // The palette goes first as well: widgets with a style sheet take the application's palette
    // of the moment the style changes, and keep it.
    QApplication::setPalette(palette);
    QApplication::setStyle(new VarnelStyle(base));
    QApplication::setPalette(palette);
}

DesktopColorScheme::DesktopColorScheme(AppSettings& settings, const QDBusConnection& bus,
                                       QObject* parent)
    : QObject(parent), settings_(settings), bus_(bus) {
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    auto fromQt = [](Qt::ColorScheme scheme) {
        return scheme == Qt::ColorScheme::Dark    ? ColorScheme::dark
               : scheme == Qt::ColorScheme::Light ? ColorScheme::light
                                                  : ColorScheme::unknown;
    };
    if (const ColorScheme known = fromQt(QGuiApplication::styleHints()->colorScheme());
        known != ColorScheme::unknown) {
        scheme_ = known;
        lastRead = known;
        connect(QGuiApplication::styleHints(), &QStyleHints::colorSchemeChanged, this,
                [this, fromQt](Qt::ColorScheme scheme) { take(fromQt(scheme)); });
        return;
    }
#endif
    scheme_ = fromDesktopFiles();
    lastRead = scheme_;
    if (!bus_.isConnected())
        return;
    if (!bus_.connect(kPortalService, kPortalPath, kPortalSettings, "SettingChanged", this,
                      kChangedSlot))
        qWarning("Not following the desktop's colour scheme: %s",
                 qPrintable(bus_.lastError().message()));
    readPortal();
}

DesktopColorScheme::~DesktopColorScheme() {
    if (bus_.isConnected())
        bus_.disconnect(kPortalService, kPortalPath, kPortalSettings, "SettingChanged", this,
                        kChangedSlot);
}

ColorScheme DesktopColorScheme::current() {
    return lastRead;
}

void DesktopColorScheme::readPortal() {
    // Not waited for: a desktop without the portal costs the start nothing.
    QDBusMessage read =
        QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalSettings, "Read");
    read << QString::fromLatin1(kAppearanceGroup) << QString::fromLatin1(kColorSchemeKey);
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusMessage reply = call->reply();
                if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
                    return;
                const ColorScheme scheme = fromPortal(reply.arguments().first());
                if (scheme != ColorScheme::unknown)
                    take(scheme);
            });
}

void DesktopColorScheme::portalSettingChanged(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 3 || arguments[0].toString() != QLatin1String(kAppearanceGroup) ||
        arguments[1].toString() != QLatin1String(kColorSchemeKey))
        return;
    const ColorScheme scheme = fromPortal(arguments[2]);
    take(scheme == ColorScheme::unknown ? fromDesktopFiles() : scheme);
}

void DesktopColorScheme::take(ColorScheme scheme) {
    lastRead = scheme;
    if (scheme == scheme_)
        return;
    scheme_ = scheme;
    if (settings_.appearance() == Appearance::system)
        applyAppearance(Appearance::system, settings_.accent());
    emit changed(scheme);
}

} // namespace varnel
