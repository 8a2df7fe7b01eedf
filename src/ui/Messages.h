#pragma once

#include <QStandardPaths>
#include <QString>

#include <string>

class QProgressDialog;
class QWidget;

namespace varnel {

inline QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

// A warning with a short title and the error's description below it.
void showError(QWidget* parent, const QString& title, const QString& description);

// Asks before something that can't be undone; Cancel is the default answer.
bool confirmDestructive(QWidget* parent, const QString& question, const QString& details,
                        const QString& action);

// A standard folder to start a file dialog in, or the home folder when it doesn't exist.
QString startFolder(QStandardPaths::StandardLocation location);

// A window-modal progress dialog that shows itself only when the work takes a while.
QProgressDialog* busy(QWidget* parent, const QString& text);

} // namespace varnel
