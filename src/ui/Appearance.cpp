#include "ui/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace varnel {

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

void applyAppearance(Appearance appearance, Accent accent) {
    static const QString platformStyle = QApplication::style()->name();
    static const QPalette platformPalette = QApplication::palette();
    if (appearance == Appearance::system) {
        QApplication::setStyle(QStyleFactory::create(platformStyle));
        QPalette palette = platformPalette;
        palette.setColor(QPalette::Highlight, accentColor(accent));
        QApplication::setPalette(palette);
        return;
    }
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    QPalette palette;
    if (appearance == Appearance::dark) {
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
        palette.setColor(QPalette::Disabled, QPalette::Text, QColor(120, 120, 126));
        palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(120, 120, 126));
        palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(120, 120, 126));
        // Fusion etches disabled text with the Light colour; keep that invisible on dark.
        palette.setColor(QPalette::Disabled, QPalette::Light, QColor(37, 37, 40));
    } else {
        palette = QApplication::style()->standardPalette();
    }
    palette.setColor(QPalette::Highlight, accentColor(accent));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, accentColor(accent));
    QApplication::setPalette(palette);
}

} // namespace varnel
