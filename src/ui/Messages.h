#pragma once

#include <QStandardPaths>
#include <QString>
#include <QStringList>

#include <string>
#include <vector>

class QCompleter;
class QObject;
class QProgressDialog;
class QWidget;

namespace varnel {

inline QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

QStringList qsList(const std::vector<std::string>& items);

// Completion from a list of names, matching anywhere in them and in any case. Its model is a
// QStringListModel, so that the list can be changed later.
QCompleter* suggestionCompleter(const QStringList& items, QObject* parent);

// A warning titled "Error" that says `title`, with the error's description below it.
void showError(QWidget* parent, const QString& title, const QString& description);

// Asks before something that can't be undone, in a window titled "Confirm <action>"; Cancel is
// the default answer.
bool confirmDestructive(QWidget* parent, const QString& question, const QString& details,
                        const QString& action);

// A standard folder to start a file dialog in, or the home folder when it doesn't exist.
QString startFolder(QStandardPaths::StandardLocation location);

// A window-modal progress dialog that shows itself only when the work takes a while.
QProgressDialog* busy(QWidget* parent, const QString& text);

} // namespace varnel
