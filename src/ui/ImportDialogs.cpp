#include "ui/ImportDialogs.h"

#include "organization/LibraryGrouping.h"
#include "ui/GalleryContent.h"
#include "ui/Messages.h"

#include <QComboBox>
#include <QCompleter>
#include <QDialogButtonBox>
#include <QDir>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <set>

namespace varnel {

namespace {

QStringList applicationNames(const std::vector<FlowSummary>& summaries) {
    return qsList(shownApplications(summaries));
}

// The categories of the application, in name order; every category when it has none yet.
QStringList categoryNames(const std::vector<FlowSummary>& summaries, const QString& application) {
    std::set<std::string> own, all;
    for (const auto& flow : summaries) {
        if (!flow.categoryL1 || flow.categoryL1->empty())
            continue;
        all.insert(*flow.categoryL1);
        if (qs(applicationOf(flow)).compare(application.trimmed(), Qt::CaseInsensitive) == 0)
            own.insert(*flow.categoryL1);
    }
    QStringList names;
    for (const auto& name : own.empty() ? all : own)
        names << qs(name);
    return names;
}

QComboBox* nameBox(const QStringList& items, const QString& placeholder, QWidget* parent) {
    auto* box = new QComboBox(parent);
    box->setEditable(true);
    box->setInsertPolicy(QComboBox::NoInsert);
    box->addItems(items);
    box->setCurrentIndex(-1);
    box->lineEdit()->setPlaceholderText(placeholder);
    box->setCompleter(suggestionCompleter(items, box));
    box->setMinimumWidth(260);
    return box;
}

void offerCategories(QComboBox* category, const QStringList& names) {
    const QString typed = category->currentText();
    category->blockSignals(true);
    category->clear();
    category->addItems(names);
    category->setCompleter(suggestionCompleter(names, category));
    category->setCurrentIndex(-1);
    category->setEditText(typed);
    category->blockSignals(false);
}

std::optional<std::string> categoryOf(const QComboBox* box) {
    const QString text = box->currentText().trimmed();
    if (text.isEmpty() || text == qs(std::string(kUncategorized)))
        return std::nullopt;
    return text.toStdString();
}

} // namespace

NewFlowDialog::NewFlowDialog(const std::vector<FlowSummary>& summaries,
                             const std::optional<std::string>& application, QWidget* parent)
    : QDialog(parent), summaries_(summaries) {
    setWindowTitle(tr("New Flow"));
    setObjectName("newFlowDialog");
    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(tr("An empty flow, to fill with captures or imported screens."), this);
    intro->setWordWrap(true);
    layout->addWidget(intro);
    auto* form = new QFormLayout;
    application_ = nameBox(applicationNames(summaries), tr("Required"), this);
    if (application)
        application_->setEditText(qs(*application));
    category_ =
        nameBox(categoryNames(summaries, application_->currentText()), tr("Uncategorized"), this);
    name_ = new QLineEdit(this);
    name_->setPlaceholderText(tr("Required, such as “Checkout”"));
    form->addRow(tr("Application:"), application_);
    form->addRow(tr("Category:"), category_);
    form->addRow(tr("Name:"), name_);
    layout->addLayout(form);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    create_ = buttons->addButton(tr("Create Flow"), QDialogButtonBox::AcceptRole);
    create_->setDefault(true);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(application_, &QComboBox::currentTextChanged, this, [this](const QString& app) {
        offerCategories(category_, categoryNames(summaries_, app));
        update();
    });
    connect(name_, &QLineEdit::textChanged, this, &NewFlowDialog::update);
    setMinimumWidth(440);
    (application ? static_cast<QWidget*>(name_) : application_)->setFocus();
    update();
}

void NewFlowDialog::update() {
    create_->setEnabled(!application_->currentText().trimmed().isEmpty() &&
                        !name_->text().trimmed().isEmpty());
}

std::string NewFlowDialog::application() const {
    return application_->currentText().trimmed().toStdString();
}

std::optional<std::string> NewFlowDialog::category() const {
    return categoryOf(category_);
}

std::string NewFlowDialog::name() const {
    return name_->text().trimmed().toStdString();
}

ImportPlanDialog::ImportPlanDialog(ScreenImport::Plan plan,
                                   const std::vector<FlowSummary>& summaries, QWidget* parent)
    : QDialog(parent), plan_(std::move(plan)), summaries_(summaries) {
    setWindowTitle(tr("Import Screens"));
    setObjectName("importPlanDialog");
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(10);
    auto* heading = new QLabel(this);
    heading->setText(plan_.flows.size() == 1
                         ? tr("One flow will be made:")
                         : tr("%1 flows will be made:").arg(plan_.flows.size()));
    QFont bold = heading->font();
    bold.setWeight(QFont::DemiBold);
    heading->setFont(bold);
    layout->addWidget(heading);

    flows_ = new QTreeWidget(this);
    flows_->setObjectName("importFlows");
    flows_->setColumnCount(3);
    flows_->setHeaderLabels({tr("Flow"), tr("Screens"), tr("From")});
    flows_->setRootIsDecorated(false);
    flows_->setUniformRowHeights(true);
    flows_->setAlternatingRowColors(true);
    flows_->setTextElideMode(Qt::ElideMiddle);
    flows_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                            QAbstractItemView::SelectedClicked);
    for (const auto& flow : plan_.flows) {
        auto* item = new QTreeWidgetItem(flows_);
        item->setText(0, qs(flow.name));
        item->setText(1, QString::number(flow.files.size()));
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        const QString from = flow.origin.empty()
                                 ? tr("Chosen files")
                                 : QDir::toNativeSeparators(qs(flow.origin.string()));
        item->setText(2, from);
        item->setToolTip(2, from);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable |
                       Qt::ItemIsUserCheckable);
        item->setCheckState(0, Qt::Checked);
    }
    flows_->header()->setStretchLastSection(true);
    flows_->header()->setSectionResizeMode(0, QHeaderView::Interactive);
    flows_->setColumnWidth(0, 220);
    flows_->setColumnWidth(1, 70);
    flows_->setMinimumHeight(std::min(260, 40 + 26 * static_cast<int>(plan_.flows.size())));
    layout->addWidget(flows_, 1);
    auto* hint =
        new QLabel(tr("Double-click a name to change it; untick a flow to leave it out."), this);
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(hint);

    auto* form = new QFormLayout;
    form->setContentsMargins(0, 6, 0, 0);
    application_ = nameBox(applicationNames(summaries), tr("Required"), this);
    application_->setEditText(qs(plan_.application));
    category_ =
        nameBox(categoryNames(summaries, application_->currentText()), tr("Uncategorized"), this);
    if (plan_.category)
        category_->setEditText(qs(*plan_.category));
    form->addRow(tr("Application:"), application_);
    form->addRow(tr("Category:"), category_);
    layout->addLayout(form);

    totals_ = new QLabel(this);
    totals_->setObjectName("importTotals");
    totals_->setWordWrap(true);
    layout->addWidget(totals_);
    if (!plan_.skipped.empty()) {
        QStringList lines;
        for (std::size_t i = 0; i < plan_.skipped.size() && i < 12; ++i)
            lines << qs(ScreenImport::describe(plan_.skipped[i])).toHtmlEscaped();
        if (plan_.skipped.size() > 12)
            lines << tr("and %1 more").arg(plan_.skipped.size() - 12);
        auto* skipped =
            new QLabel((plan_.skipped.size() == 1
                            ? tr("1 file will be left out:")
                            : tr("%1 files will be left out:").arg(plan_.skipped.size())) +
                           "<br>" + lines.join("<br>"),
                       this);
        skipped->setObjectName("importSkipped");
        skipped->setWordWrap(true);
        skipped->setTextInteractionFlags(Qt::TextSelectableByMouse);
        skipped->setForegroundRole(QPalette::PlaceholderText);
        layout->addWidget(skipped);
    }

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    import_ = buttons->addButton(tr("Import"), QDialogButtonBox::AcceptRole);
    import_->setDefault(true);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(application_, &QComboBox::currentTextChanged, this, [this](const QString& app) {
        offerCategories(category_, categoryNames(summaries_, app));
        update();
    });
    connect(flows_, &QTreeWidget::itemChanged, this, &ImportPlanDialog::update);
    connect(category_, &QComboBox::currentTextChanged, this, &ImportPlanDialog::update);
    resize(640, 460);
    update();
    if (plan_.application.empty())
        application_->setFocus();
}

void ImportPlanDialog::update() {
    const ScreenImport::Plan chosen = plan();
    const std::size_t screens = chosen.fileCount();
    const QString where = qs(chosen.application.empty() ? "…" : chosen.application) + " ▸ " +
                          qs(chosen.category.value_or(std::string(kUncategorized)));
    totals_->setText(
        (screens == 1 ? tr("1 screen") : tr("%1 screens").arg(screens)) + " " +
        (chosen.flows.size() == 1 ? tr("in 1 flow") : tr("in %1 flows").arg(chosen.flows.size())) +
        " " + tr("go to %1.").arg(where));
    import_->setEnabled(!chosen.application.empty() && !chosen.flows.empty());
}

ScreenImport::Plan ImportPlanDialog::plan() const {
    ScreenImport::Plan chosen = plan_;
    chosen.application = application_->currentText().trimmed().toStdString();
    chosen.category = categoryOf(category_);
    chosen.flows.clear();
    for (int i = 0; i < flows_->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = flows_->topLevelItem(i);
        if (item->checkState(0) != Qt::Checked)
            continue;
        ScreenImport::PlannedFlow flow = plan_.flows[static_cast<std::size_t>(i)];
        const QString name = item->text(0).trimmed();
        if (!name.isEmpty())
            flow.name = name.toStdString();
        chosen.flows.push_back(std::move(flow));
    }
    return chosen;
}

EmptyLibraryPanel::EmptyLibraryPanel(QWidget* parent) : QWidget(parent) {
    setObjectName("emptyLibrary");
    // Over the gallery's own empty text.
    setBackgroundRole(QPalette::Base);
    setAutoFillBackground(true);
    auto* outer = new QVBoxLayout(this);
    outer->addStretch(3);
    auto* column = new QWidget(this);
    column->setMaximumWidth(520);
    auto* layout = new QVBoxLayout(column);
    layout->setSpacing(14);
    auto* title = new QLabel(tr("No flows yet"), column);
    title->setObjectName("emptyTitle");
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setWeight(QFont::DemiBold);
    title->setFont(big);
    title->setAlignment(Qt::AlignHCenter);
    layout->addWidget(title);
    // Broken by hand: a wrapped label in a centred column is given too little height.
    auto* hint = new QLabel(tr("Capture screens from a phone or an emulator, bring in\n"
                               "screenshots and recordings you already have, or start\n"
                               "an empty flow to fill later. Files and folders dropped\n"
                               "here become flows too."),
                            column);
    hint->setObjectName("emptyHint");
    hint->setAlignment(Qt::AlignHCenter);
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(hint);
    layout->addSpacing(6);
    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(10);
    capture_ = new QPushButton(tr("New Capture"), column);
    capture_->setDefault(true);
    import_ = new QPushButton(tr("Import Screens…"), column);
    newFlow_ = new QPushButton(tr("New Flow…"), column);
    for (QPushButton* button : {capture_, import_, newFlow_}) {
        button->setMinimumHeight(34);
        button->setMinimumWidth(130);
        button->setCursor(Qt::PointingHandCursor);
        buttons->addWidget(button);
    }
    layout->addLayout(buttons);
    outer->addWidget(column, 0, Qt::AlignHCenter);
    outer->addStretch(4);
    connect(capture_, &QPushButton::clicked, this, &EmptyLibraryPanel::captureRequested);
    connect(import_, &QPushButton::clicked, this, &EmptyLibraryPanel::importRequested);
    connect(newFlow_, &QPushButton::clicked, this, &EmptyLibraryPanel::newFlowRequested);
}

} // namespace varnel
