#pragma once

#include <QString>

class QMenuBar;
class QWidget;

namespace varnel {

// Makes `window` behave as a secondary window: the first time it opens it is centred on its
// parent and no larger than the screen's free area; Esc that nothing inside it took closes it,
// and so does Ctrl+W unless `closesOnCtrlW` is false (a window whose own Close command has that
// shortcut). Closing goes through the window's closeEvent, with its questions.
void behaveAsSecondaryWindow(QWidget* window, bool closesOnCtrlW = true);

// Centres `window` on its parent (or its screen) and shrinks it to fit the screen's free area.
void fitAndCentre(QWidget* window);

// Gives each command in the bar's menus an access key that its text lacks, unique within its
// menu where the letters allow, as KDE's accelerator manager does; again whenever a menu opens,
// for the commands added since.
void assignMnemonics(QMenuBar* bar);

// The text as it shows, without the access key's marker ("&&" is a plain "&").
QString withoutMnemonic(const QString& text);

} // namespace varnel
