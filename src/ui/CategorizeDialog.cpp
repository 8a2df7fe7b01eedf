#include "ui/CategorizeDialog.h"
#include "ui/Messages.h"

#include "archive/AppArchive.h"

#include <QComboBox>
#include <QCompleter>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStringListModel>
#include <QVBoxLayout>

namespace varnel {

CategorizeDialog::CategorizeDialog(FlowLibrary& library, const std::optional<std::string>& folder,
                                   QWidget* parent)
    : QDialog(parent), sheet_(library), flow_(new QComboBox(this)),
      application_(new QLineEdit(this)), category_(new QLineEdit(this)),
      categoryCompleter_(suggestionCompleter({}, this)), save_(nullptr),
      problem_(new QLabel(this)) {
    setWindowTitle(tr("Categorize flow"));
    setModal(true);
    setMinimumWidth(420);

    for (const auto& flow : sheet_.flows()) {
        const QString app =
            qs(flow.application.value_or(std::string(AppArchive::kSansApplication)));
        flow_->addItem(app + " — " + qs(flow.name), qs(flow.folderName));
    }
    application_->setCompleter(suggestionCompleter(qsList(sheet_.applicationSuggestions()), this));
    category_->setPlaceholderText(CategorizeAny::Sheet::kCategoryPlaceholder);
    category_->setCompleter(categoryCompleter_);
    problem_->setWordWrap(true);
    problem_->setStyleSheet("color: #e5534b");
    problem_->hide();

    auto* form = new QFormLayout;
    form->addRow(tr("Flow"), flow_);
    form->addRow(tr("Application"), application_);
    form->addRow(tr("Category"), category_);
    auto* buttons = new QDialogButtonBox(this);
    save_ = buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    save_->setDefault(true);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(problem_);
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, &CategorizeDialog::save);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(flow_, &QComboBox::currentIndexChanged, this, &CategorizeDialog::pick);
    connect(application_, &QLineEdit::textChanged, this,
            &CategorizeDialog::updateCategorySuggestions);

    const int start = folder ? flow_->findData(qs(*folder)) : 0;
    flow_->setCurrentIndex(std::max(0, start));
    pick(flow_->currentIndex());
    save_->setEnabled(flow_->count() > 0);
}

void CategorizeDialog::pick(int index) {
    if (index < 0)
        return;
    problem_->hide();
    try {
        sheet_.prefill(flow_->itemData(index).toString().toStdString());
    } catch (const std::exception& e) {
        problem_->setText(qs(e.what()));
        problem_->show();
        return;
    }
    application_->setText(qs(sheet_.application));
    category_->setText(qs(sheet_.category));
    updateCategorySuggestions();
}

void CategorizeDialog::updateCategorySuggestions() {
    sheet_.application = application_->text().toStdString();
    auto* model = qobject_cast<QStringListModel*>(categoryCompleter_->model());
    if (model)
        model->setStringList(qsList(sheet_.categorySuggestions()));
}

void CategorizeDialog::save() {
    sheet_.application = application_->text().toStdString();
    sheet_.category = category_->text().toStdString();
    try {
        saved_ = sheet_.save();
    } catch (const std::exception& e) {
        // The sheet stays open with what the user typed.
        problem_->setText(tr("Couldn’t save: %1").arg(qs(e.what())));
        problem_->show();
        return;
    }
    accept();
}

} // namespace varnel
