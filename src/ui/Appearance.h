#pragma once

#include "app/AppSettings.h"

#include <QColor>
#include <QDBusConnection>
#include <QObject>

class QDBusMessage;
class QPalette;

namespace varnel {

enum class ColorScheme { unknown, light, dark };

QColor accentColor(Accent accent);

// Applies the chosen appearance and accent to the whole application. "System" follows the
// desktop's light or dark preference as the DesktopColorScheme last read it, and keeps the
// platform's own palette when the desktop states none.
void applyAppearance(Appearance appearance, Accent accent);

// Whether the palette draws light text on a dark window.
bool isDark(const QPalette& palette);

// The desktop's light or dark preference: Qt's own where it knows it (Qt 6.5 and later), else
// xdg-desktop-portal's org.freedesktop.appearance color-scheme (GNOME and KDE both publish it),
// else GTK's settings.ini or KDE's kdeglobals. When it changes and the settings say "system",
// the appearance is applied again at once.
class DesktopColorScheme : public QObject {
    Q_OBJECT

public:
    explicit DesktopColorScheme(AppSettings& settings,
                                const QDBusConnection& bus = QDBusConnection::sessionBus(),
                                QObject* parent = nullptr);
    ~DesktopColorScheme() override;

    ColorScheme scheme() const { return scheme_; }
    // What the newest DesktopColorScheme read; unknown before there is one.
    static ColorScheme current();

    // The portal's SettingChanged signal (a slot, for QtDBus to call).
public slots:
    void portalSettingChanged(const QDBusMessage& message);

signals:
    void changed(ColorScheme scheme);

private:
    void readPortal();
    void take(ColorScheme scheme);

    AppSettings& settings_;
    QDBusConnection bus_;
    ColorScheme scheme_ = ColorScheme::unknown;
};

} // namespace varnel
