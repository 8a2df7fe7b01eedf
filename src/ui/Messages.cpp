#include "ui/Messages.h"

#include <QCompleter>
#include <QDir>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>

namespace varnel {

void showError(QWidget* parent, const QString& title, const QString& description) {
    // The window's title names the kind of message; what happened is said once, in the text.
    QMessageBox box(QMessageBox::Warning, QObject::tr("Error"), title, QMessageBox::Ok, parent);
    box.setInformativeText(description);
    box.exec();
}

bool confirmDestructive(QWidget* parent, const QString& question, const QString& details,
                        const QString& action) {
    QMessageBox confirm(QMessageBox::Warning, QObject::tr("Confirm %1").arg(action), question,
                        QMessageBox::Cancel, parent);
    confirm.setInformativeText(details);
    QPushButton* go = confirm.addButton(action, QMessageBox::DestructiveRole);
    confirm.setDefaultButton(QMessageBox::Cancel);
    confirm.exec();
    return confirm.clickedButton() == go;
}

QString startFolder(QStandardPaths::StandardLocation location) {
    const QString folder = QStandardPaths::writableLocation(location);
    return QDir(folder).exists() ? folder : QDir::homePath();
}

QProgressDialog* busy(QWidget* parent, const QString& text) {
    auto* progress = new QProgressDialog(text, QString(), 0, 100, parent);
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(300);
    progress->setAutoClose(false);
    progress->setValue(0);
    return progress;
}

QStringList qsList(const std::vector<std::string>& items) {
    QStringList list;
    for (const auto& item : items)
        list << qs(item);
    return list;
}

QCompleter* suggestionCompleter(const QStringList& items, QObject* parent) {
    auto* completer = new QCompleter(items, parent);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    completer->setFilterMode(Qt::MatchContains);
    return completer;
}

} // namespace varnel
