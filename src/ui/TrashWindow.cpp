#include "ui/TrashWindow.h"

#include "model/FlowLibrary.h"
#include "ui/Messages.h"

#include <QDateTime>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cmath>

namespace varnel {

namespace {

QString placeOf(const FlowSummary& flow, bool withCategory) {
    QString where = qs(flow.application.value_or(""));
    if (withCategory && flow.categoryL1)
        where += " ▸ " + qs(*flow.categoryL1);
    return where;
}

// The application and category it came from, as the sidebar names them.
QString whereFrom(const TrashEntry& entry, const std::vector<FlowSummary>& flows) {
    if (entry.holdsFlows())
        return placeOf(entry.flows.front().summary, entry.flows.size() == 1);
    for (const auto& flow : flows)
        if (flow.id == entry.flowId)
            return placeOf(flow, true);
    return qs(entry.folderName);
}

QString when(Date date) {
    const auto moment = QDateTime::fromMSecsSinceEpoch(std::llround(date.unixSeconds() * 1000.0));
    return QLocale().toString(moment, QLocale::ShortFormat);
}

} // namespace

TrashWindow::TrashWindow(FlowLibrary& library, QWidget* parent)
    : QDialog(parent), library_(library), list_(new QTreeWidget(this)),
      putBack_(new QPushButton(tr("&Put Back"), this)),
      delete_(new QPushButton(tr("&Delete Permanently…"), this)),
      empty_(new QPushButton(tr("&Empty Trash…"), this)) {
    setObjectName("trashWindow");
    setWindowTitle(tr("Trash"));
    resize(640, 380);
    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(tr("Deleted flows and screens stay here for 30 days, then they are "
                                "removed. Putting one back can be undone."),
                             this);
    intro->setWordWrap(true);
    layout->addWidget(intro);
    list_->setObjectName("trashList");
    list_->setHeaderLabels({tr("Deleted"), tr("From"), tr("When")});
    list_->setRootIsDecorated(false);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    layout->addWidget(list_, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->addButton(putBack_, QDialogButtonBox::ActionRole);
    buttons->addButton(delete_, QDialogButtonBox::ActionRole);
    buttons->addButton(empty_, QDialogButtonBox::ResetRole);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(putBack_, &QPushButton::clicked, this, [this] {
        for (const auto& entry : chosen())
            emit putBack(entry);
    });
    connect(delete_, &QPushButton::clicked, this, &TrashWindow::deleteChosen);
    connect(empty_, &QPushButton::clicked, this, &TrashWindow::emptyTrash);
    connect(list_, &QTreeWidget::itemSelectionChanged, this, &TrashWindow::updateButtons);
    connect(list_, &QTreeWidget::itemDoubleClicked, putBack_, &QPushButton::click);
    connect(&library_, &FlowLibrary::changed, this, &TrashWindow::refresh);
    refresh();
}

void TrashWindow::refresh() {
    entries_.clear();
    for (auto& entry : library_.trashEntries())
        if (!entry.hidden)
            entries_.push_back(std::move(entry));
    list_->clear();
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const auto& entry = entries_[i];
        QString what = qs(entry.description());
        what[0] = what[0].toUpper();
        auto* item = new QTreeWidgetItem(
            list_, {what, whereFrom(entry, library_.summaries()), when(entry.deletedAt)});
        item->setData(0, Qt::UserRole, static_cast<qulonglong>(i));
    }
    if (entries_.empty()) {
        auto* item = new QTreeWidgetItem(list_, {tr("The trash is empty.")});
        item->setFlags(Qt::NoItemFlags);
    }
    updateButtons();
}

std::vector<TrashEntry> TrashWindow::chosen() const {
    std::vector<TrashEntry> out;
    for (const auto* item : list_->selectedItems())
        out.push_back(entries_.at(item->data(0, Qt::UserRole).toULongLong()));
    return out;
}

void TrashWindow::updateButtons() {
    const bool writable = !library_.readOnlyReason();
    putBack_->setEnabled(writable && !list_->selectedItems().isEmpty());
    delete_->setEnabled(writable && !list_->selectedItems().isEmpty());
    empty_->setEnabled(writable && !entries_.empty());
}

void TrashWindow::deleteChosen() {
    const auto entries = chosen();
    if (entries.empty())
        return;
    const QString question = entries.size() == 1
                                 ? tr("Delete %1 permanently?").arg(qs(entries[0].description()))
                                 : tr("Delete %1 items permanently?").arg(entries.size());
    if (!confirmDestructive(this, question, tr("This can’t be undone."), tr("Delete")))
        return;
    try {
        for (const auto& entry : entries)
            library_.purgeTrash(entry.id);
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t delete it permanently"), qs(e.what()));
    }
}

void TrashWindow::emptyTrash() {
    if (!confirmDestructive(this, tr("Empty the trash?"),
                            tr("Everything in it is deleted permanently. This can’t be undone."),
                            tr("Empty Trash")))
        return;
    try {
        library_.emptyTrash();
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t empty the trash"), qs(e.what()));
    }
}

} // namespace varnel
