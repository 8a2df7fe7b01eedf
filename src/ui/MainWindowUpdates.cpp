#include "app/UpdateChecker.h"
#include "ui/MainWindow.h"
#include "ui/Messages.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QUrl>

namespace varnel {

void MainWindow::checkForUpdates() {
    statusBar()->showMessage(tr("Checking for updates…"));
    updates_->checkNow();
}

void MainWindow::showUpdateCheck(const UpdateCheckResult& result, bool userAsked) {
    if (userAsked)
        statusBar()->clearMessage();
    switch (result.outcome) {
    case UpdateCheckResult::Outcome::newer: {
        const Release release = *result.release;
        updateAvailable_->setText(tr("Varnel %1 is available").arg(qs(release.version)));
        updateAvailable_->disconnect(this);
        connect(updateAvailable_, &QPushButton::clicked, this,
                [this, release] { showNewRelease(release); });
        updateAvailable_->show();
        if (userAsked)
            showNewRelease(release);
        return;
    }
    case UpdateCheckResult::Outcome::upToDate:
        updateAvailable_->hide();
        if (userAsked) {
            QMessageBox box(QMessageBox::Information, tr("Check for Updates"),
                            tr("You're up to date"), QMessageBox::Ok, this);
            box.setObjectName("upToDate");
            box.setInformativeText(
                tr("Varnel %1 is the newest version.").arg(qs(std::string(applicationVersion()))));
            box.exec();
        }
        return;
    case UpdateCheckResult::Outcome::failed:
        // A weekly check that failed stays quiet and is tried again later.
        if (userAsked)
            showError(this, tr("Couldn’t check for updates"), qs(result.problem));
        return;
    }
}

void MainWindow::showNewRelease(const Release& release) {
    QMessageBox box(QMessageBox::Information, tr("Update Available"),
                    tr("Varnel %1 is available").arg(qs(release.version)), QMessageBox::NoButton,
                    this);
    box.setObjectName("newRelease");
    // The notes come from the network: shown as text, never as markup.
    QString details =
        "<p>" +
        tr("You have Varnel %1; %2 was released on %3.")
            .arg(qs(std::string(applicationVersion())), qs(release.version), qs(release.date))
            .toHtmlEscaped() +
        "</p>";
    if (!release.notes.empty())
        details += "<p>" + qs(release.notes).toHtmlEscaped().replace('\n', "<br>") + "</p>";
    box.setInformativeText(details);
    QPushButton* download = box.addButton(tr("Download…"), QMessageBox::AcceptRole);
    box.addButton(tr("Later"), QMessageBox::RejectRole);
    box.setDefaultButton(download);
    box.exec();
    if (box.clickedButton() == download)
        QDesktopServices::openUrl(QUrl(qs(release.url)));
}

} // namespace varnel
