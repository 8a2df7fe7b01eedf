#include "ui/SecondaryWindows.h"

#include <QAction>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSet>
#include <QShortcut>
#include <QWidget>

#include <algorithm>

namespace varnel {

namespace {

class SecondaryWindowFilter : public QObject {
public:
    explicit SecondaryWindowFilter(QWidget* window) : QObject(window), window_(window) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (watched != window_)
            return false;
        if (event->type() == QEvent::Show && !placed_) {
            placed_ = true;
            fitAndCentre(window_);
        } else if (event->type() == QEvent::KeyPress &&
                   static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape &&
                   static_cast<QKeyEvent*>(event)->modifiers() == Qt::NoModifier) {
            // It reaches the window itself only when no widget inside used it.
            window_->close();
            return true;
        }
        return false;
    }

private:
    QWidget* window_;
    bool placed_ = false;
};

// The letters of `text` in the order they are tried: word starts first, then the rest.
QList<QChar> candidates(const QString& text) {
    QList<QChar> starts;
    QList<QChar> rest;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (!c.isLetterOrNumber())
            continue;
        const bool wordStart = i == 0 || !text[i - 1].isLetterOrNumber();
        (wordStart ? starts : rest) << c.toLower();
    }
    return starts + rest;
}

bool hasMnemonic(const QString& text) {
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != QLatin1Char('&'))
            continue;
        if (text[i + 1] != QLatin1Char('&'))
            return true;
        ++i;
    }
    return false;
}

QChar mnemonicOf(const QString& text) {
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != QLatin1Char('&'))
            continue;
        if (text[i + 1] != QLatin1Char('&'))
            return text[i + 1].toLower();
        ++i;
    }
    return {};
}

void assignInMenu(QMenu* menu) {
    QSet<QChar> used;
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        if (hasMnemonic(action->text()))
            used.insert(mnemonicOf(action->text()));
    for (QAction* action : actions) {
        if (QMenu* sub = action->menu())
            assignInMenu(sub);
        if (action->isSeparator() || action->text().isEmpty() || hasMnemonic(action->text()))
            continue;
        QString text = action->text();
        text.replace(QLatin1Char('&'), QLatin1String("&&"));
        const QString plain = action->text();
        for (const QChar letter : candidates(plain)) {
            if (used.contains(letter))
                continue;
            // The letter's first place in the text, as the candidates were found there.
            qsizetype at = -1;
            for (qsizetype i = 0; i < plain.size(); ++i) {
                if (plain[i].toLower() != letter)
                    continue;
                const bool wordStart = i == 0 || !plain[i - 1].isLetterOrNumber();
                if (wordStart || at < 0) {
                    at = i;
                    if (wordStart)
                        break;
                }
            }
            const qsizetype before = plain.left(at).count(QLatin1Char('&'));
            text.insert(at + before, QLatin1Char('&'));
            used.insert(letter);
            action->setText(text);
            break;
        }
    }
}

} // namespace

void behaveAsSecondaryWindow(QWidget* window, bool closesOnCtrlW) {
    window->installEventFilter(new SecondaryWindowFilter(window));
    if (closesOnCtrlW)
        new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_W), window, window, &QWidget::close);
}

void fitAndCentre(QWidget* window) {
    const QWidget* parent = window->parentWidget() ? window->parentWidget()->window() : nullptr;
    QScreen* screen = parent ? parent->screen() : window->screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect free = screen->availableGeometry();
    // Room for the window manager's frame, which the window's own size leaves out.
    const QSize frame = window->frameGeometry().size() - window->geometry().size();
    const QSize margin(std::max(frame.width(), 16), std::max(frame.height(), 40));
    const QSize fitted = window->size().boundedTo(free.size() - margin);
    if (fitted != window->size())
        window->resize(fitted.expandedTo(window->minimumSize()));
    QRect placed(QPoint(), window->size() + frame);
    placed.moveCenter(parent && parent->isVisible() ? parent->frameGeometry().center()
                                                    : free.center());
    placed.moveLeft(std::clamp(placed.left(), free.left(),
                               std::max(free.left(), free.right() + 1 - placed.width())));
    placed.moveTop(std::clamp(placed.top(), free.top(),
                              std::max(free.top(), free.bottom() + 1 - placed.height())));
    window->move(placed.topLeft());
}

void assignMnemonics(QMenuBar* bar) {
    for (QAction* top : bar->actions()) {
        QMenu* menu = top->menu();
        if (!menu)
            continue;
        assignInMenu(menu);
        QObject::connect(menu, &QMenu::aboutToShow, menu, [menu] { assignInMenu(menu); });
    }
}

QString withoutMnemonic(const QString& text) {
    QString plain;
    plain.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == QLatin1Char('&') && i + 1 < text.size())
            ++i;
        plain += text[i];
    }
    return plain;
}

} // namespace varnel
