#include "ui/ShortcutsWindow.h"

#include "ui/SecondaryWindows.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace varnel {

namespace {

QString shortcutText(const QAction* action) {
    QStringList keys;
    for (const QKeySequence& key : action->shortcuts())
        keys << key.toString(QKeySequence::NativeText);
    return keys.join(QStringLiteral(", "));
}

// The commands of `menu` and its submenus that have a shortcut; a submenu's are named after it.
void collect(const QMenu* menu, const QString& prefix, QTreeWidgetItem* group) {
    for (const QAction* action : menu->actions()) {
        const QString name = prefix + withoutMnemonic(action->text());
        if (const QMenu* sub = action->menu()) {
            collect(sub, name + QStringLiteral(" ▸ "), group);
            continue;
        }
        if (action->isSeparator() || action->shortcuts().isEmpty())
            continue;
        auto* row = new QTreeWidgetItem(group, {name, shortcutText(action)});
        row->setToolTip(0, action->statusTip().isEmpty() ? action->toolTip() : action->statusTip());
    }
}

} // namespace

ShortcutsWindow::ShortcutsWindow(QMenuBar* menus, QWidget* parent)
    : QDialog(parent), menus_(menus), search_(new QLineEdit(this)), list_(new QTreeWidget(this)) {
    setWindowTitle(tr("Keyboard Shortcuts"));
    search_->setPlaceholderText(tr("Search commands and keys"));
    search_->setClearButtonEnabled(true);
    list_->setColumnCount(2);
    list_->setHeaderLabels({tr("Command"), tr("Shortcut")});
    list_->setRootIsDecorated(false);
    list_->setSelectionMode(QAbstractItemView::NoSelection);
    list_->setFocusPolicy(Qt::NoFocus);
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    list_->header()->setStretchLastSection(false);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setDefault(true);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(search_);
    layout->addWidget(list_, 1);
    layout->addWidget(buttons);
    connect(search_, &QLineEdit::textChanged, this, &ShortcutsWindow::filter);
    resize(520, 640);
    behaveAsSecondaryWindow(this);
    rebuild();
}

void ShortcutsWindow::showEvent(QShowEvent* event) {
    rebuild(); // the menus may have changed since it was last open
    search_->setFocus();
    QDialog::showEvent(event);
}

void ShortcutsWindow::rebuild() {
    list_->clear();
    if (!menus_)
        return;
    for (const QAction* top : menus_->actions()) {
        const QMenu* menu = top->menu();
        if (!menu)
            continue;
        auto* group = new QTreeWidgetItem(list_, {withoutMnemonic(top->text())});
        QFont bold = group->font(0);
        bold.setBold(true);
        group->setFont(0, bold);
        group->setFirstColumnSpanned(true);
        collect(menu, QString(), group);
        if (group->childCount() == 0)
            delete group;
    }
    list_->expandAll();
    filter(search_->text());
}

void ShortcutsWindow::filter(const QString& text) {
    const QString wanted = text.trimmed();
    for (int g = 0; g < list_->topLevelItemCount(); ++g) {
        QTreeWidgetItem* group = list_->topLevelItem(g);
        const bool groupMatches = group->text(0).contains(wanted, Qt::CaseInsensitive);
        int shown = 0;
        for (int r = 0; r < group->childCount(); ++r) {
            QTreeWidgetItem* row = group->child(r);
            const bool matches = wanted.isEmpty() || groupMatches ||
                                 row->text(0).contains(wanted, Qt::CaseInsensitive) ||
                                 row->text(1).contains(wanted, Qt::CaseInsensitive);
            row->setHidden(!matches);
            shown += matches;
        }
        group->setHidden(shown == 0);
    }
}

QStringList ShortcutsWindow::shownRows() const {
    QStringList rows;
    for (int g = 0; g < list_->topLevelItemCount(); ++g) {
        const QTreeWidgetItem* group = list_->topLevelItem(g);
        if (group->isHidden())
            continue;
        for (int r = 0; r < group->childCount(); ++r)
            if (!group->child(r)->isHidden())
                rows << group->text(0) + QStringLiteral(" ▸ ") + group->child(r)->text(0) +
                            QStringLiteral(" — ") + group->child(r)->text(1);
    }
    return rows;
}

} // namespace varnel
