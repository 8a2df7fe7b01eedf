#include "ui/FigmaFlowBar.h"

#include "figma/Background.h"
#include "figma/FigmaAutoLink.h"
#include "figma/FigmaExport.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaPublishableWork.h"
#include "figma/FigmaServices.h"
#include "model/FlowLibrary.h"

#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QDrag>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace varnel {

// The export package as a chip that is dragged out of the app, onto Figma's plugin window.
class PackageChip : public QLabel {
public:
    explicit PackageChip(QWidget* parent) : QLabel(parent) {
        setObjectName("figmaPackage");
        setToolTip(tr("Drag onto the Varnel Import plugin window in Figma"));
        setCursor(Qt::OpenHandCursor);
        setFrameShape(QFrame::StyledPanel);
        setContentsMargins(8, 2, 8, 2);
    }
    void setFile(const std::optional<std::filesystem::path>& file) {
        file_ = file;
        setVisible(file.has_value());
        if (file)
            setText(QStringLiteral("⇪ ") + QString::fromStdString(file->filename().string()));
    }

protected:
    void mousePressEvent(QMouseEvent* event) override { pressed_ = event->position().toPoint(); }
    void mouseMoveEvent(QMouseEvent* event) override {
        if (!file_ || !(event->buttons() & Qt::LeftButton) ||
            (event->position().toPoint() - pressed_).manhattanLength() <
                QApplication::startDragDistance())
            return;
        auto* mime = new QMimeData;
        mime->setUrls({QUrl::fromLocalFile(QString::fromStdString(file_->string()))});
        auto* drag = new QDrag(this);
        drag->setMimeData(mime);
        drag->exec(Qt::CopyAction);
    }

private:
    std::optional<std::filesystem::path> file_;
    QPoint pressed_;
};

FigmaFlowBar::FigmaFlowBar(FlowLibrary& library, FigmaServices& figma, QWidget* parent)
    : QFrame(parent), library_(library), figma_(figma), title_(new QLabel(this)),
      export_(new QPushButton(tr("Export for Figma"), this)), chip_(new PackageChip(this)),
      link_(new QLineEdit(this)), publish_(new QPushButton(this)),
      offer_(new QPushButton(tr("Link to the Copied File"), this)), status_(new QLabel(this)) {
    setObjectName("figmaBar");
    setFrameShape(QFrame::StyledPanel);
    export_->setObjectName("figmaExport");
    export_->setToolTip(tr("Write the package for the Varnel Import plugin in the flow's folder"));
    link_->setObjectName("figmaLink");
    link_->setPlaceholderText(QStringLiteral("https://%1/design/…").arg(FigmaFileLink::kWebHost));
    link_->setToolTip(tr("The Figma file this flow was imported into"));
    link_->setClearButtonEnabled(true);
    publish_->setObjectName("figmaPublish");
    publish_->setToolTip(tr("Send this flow's comment changes to the linked file and bring its "
                            "replies back"));
    offer_->setObjectName("figmaLinkOffer");
    offer_->hide();
    status_->setObjectName("figmaStatus");
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* top = new QHBoxLayout;
    top->addWidget(title_, 1);
    top->addWidget(chip_);
    top->addWidget(export_);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(new QLabel(tr("Figma file:"), this));
    bottom->addWidget(link_, 1);
    bottom->addWidget(offer_);
    bottom->addWidget(publish_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->addLayout(top);
    layout->addLayout(bottom);
    layout->addWidget(status_);

    connect(export_, &QPushButton::clicked, this, &FigmaFlowBar::exportPackage);
    connect(link_, &QLineEdit::editingFinished, this, &FigmaFlowBar::applyLink);
    connect(publish_, &QPushButton::clicked, this, &FigmaFlowBar::publish);
    connect(offer_, &QPushButton::clicked, this, &FigmaFlowBar::acceptOffer);
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this,
            &FigmaFlowBar::clipboardChanged);
    connect(&library_, &FlowLibrary::changed, this, &FigmaFlowBar::refresh);
    connect(&figma_.sync(), &FigmaSyncService::stateChanged, this, [this](const QString& folder) {
        if (folder_ && folder.toStdString() == *folder_)
            refresh();
    });
    setFlow(std::nullopt);
}

void FigmaFlowBar::setFlow(const std::optional<std::string>& folderName) {
    if (folderName == folder_ && folder_)
        return;
    folder_ = folderName;
    error_.clear();
    note_.clear();
    offeredURL_.reset();
    link_->clear();
    refresh();
}

void FigmaFlowBar::refresh() {
    const FlowMeta* meta = nullptr;
    if (folder_) {
        try {
            meta = &library_.meta(*folder_);
        } catch (const std::exception&) {
        }
    }
    setVisible(meta != nullptr);
    if (!meta) {
        publish_->setEnabled(false);
        return;
    }
    title_->setText(
        tr("<b>Figma</b> · %1").arg(QString::fromStdString(meta->name).toHtmlEscaped()));
    chip_->setFile(library_.existingFigmaZip(*folder_));
    if (!link_->hasFocus() && error_.isEmpty())
        link_->setText(QString::fromStdString(meta->figmaFileURL.value_or("")));

    // Always available for a linked flow: colleagues' replies come in even when nothing goes out.
    const bool syncing = figma_.sync().isSyncing(*folder_);
    const int pending = FigmaPublishableWork::count(*meta);
    publish_->setText(pending > 0 ? tr("Sync with Figma (%1)").arg(pending)
                                  : tr("Sync with Figma"));
    publish_->setEnabled(!syncing && meta->figmaFileURL.has_value());
    export_->setEnabled(!syncing && !exporting_);
    if (meta->figmaFileURL)
        offeredURL_.reset();
    offer_->setVisible(offeredURL_.has_value());
    if (offeredURL_)
        offer_->setToolTip(QString::fromStdString(*offeredURL_));

    QString text = error_;
    bool failed = !error_.isEmpty();
    if (text.isEmpty() && exporting_) {
        text = tr("Writing the package…");
    } else if (text.isEmpty() && !note_.isEmpty()) {
        text = note_;
    } else if (text.isEmpty() && syncing) {
        text = tr("Syncing with Figma…");
    } else if (text.isEmpty()) {
        if (const auto outcome = figma_.sync().lastOutcome(*folder_)) {
            text = QString::fromStdString(outcome->text);
            failed = outcome->failed;
        } else if (meta->figmaLastPulledAt) {
            const auto when = QDateTime::fromSecsSinceEpoch(
                static_cast<qint64>(meta->figmaLastPulledAt->unixSeconds()));
            text = tr("Last synced %1").arg(QLocale().toString(when, QLocale::ShortFormat));
        } else if (!meta->figmaFileURL) {
            text = tr("Export the flow, import it with the Varnel Import plugin, then paste the "
                      "Figma file's link here.");
        }
    }
    status_->setText(text);
    status_->setVisible(!text.isEmpty());
    status_->setStyleSheet(failed ? QStringLiteral("color: #e5484d;") : QString());
}

void FigmaFlowBar::showError(const QString& text) {
    error_ = text;
    refresh();
}

void FigmaFlowBar::exportPackage() {
    if (!folder_ || exporting_)
        return;
    FlowMeta meta;
    std::filesystem::path source, destination;
    try {
        meta = library_.meta(*folder_);
        source = library_.store().flowURL(*folder_);
        destination = source / FigmaExport::packageName(meta);
    } catch (const std::exception& e) {
        return showError(
            tr("The package couldn't be written: %1").arg(QString::fromUtf8(e.what())));
    }
    // Reading and zipping every screen takes a while: the window stays responsive meanwhile.
    exporting_ = true;
    error_.clear();
    note_.clear();
    refresh();
    const std::string folder = *folder_;
    runInBackground(
        this,
        [meta, source, destination]() -> std::string {
            try {
                FigmaExport::exportPackage(meta, source, destination);
                return {};
            } catch (const std::exception& e) {
                return e.what();
            }
        },
        [this, folder](const std::string& failure) {
            exporting_ = false;
            if (folder_ != folder)
                return refresh();
            if (!failure.empty())
                return showError(
                    tr("The package couldn't be written: %1").arg(QString::fromStdString(failure)));
            note_ = tr("Package ready — drag it onto the Varnel Import plugin window in Figma");
            refresh();
        });
}

void FigmaFlowBar::clipboardChanged() {
    if (!folder_)
        return;
    try {
        offeredURL_ = FigmaAutoLink::offer(QGuiApplication::clipboard()->text().toStdString(),
                                           library_.meta(*folder_));
    } catch (const std::exception&) {
        offeredURL_.reset();
    }
    refresh();
}

void FigmaFlowBar::acceptOffer() {
    if (!offeredURL_)
        return;
    link_->setText(QString::fromStdString(*offeredURL_));
    offeredURL_.reset();
    applyLink();
}

void FigmaFlowBar::applyLink() {
    if (!folder_)
        return;
    const std::string text = link_->text().trimmed().toStdString();
    std::optional<std::string> url;
    if (!text.empty()) {
        url = FigmaFileLink::canonicalURL(text);
        if (!url)
            return showError(tr(kNotAFigmaLink));
    }
    error_.clear();
    try {
        if (library_.meta(*folder_).figmaFileURL != url)
            library_.setFigmaFileURL(*folder_, url);
    } catch (const std::exception& e) {
        return showError(QString::fromUtf8(e.what()));
    }
    link_->setText(QString::fromStdString(url.value_or("")));
    refresh();
}

void FigmaFlowBar::publish() {
    if (!folder_)
        return;
    error_.clear();
    note_.clear();
    figma_.sync().publish(*folder_);
    refresh();
}

QString FigmaFlowBar::statusText() const {
    return status_->text();
}

} // namespace varnel
