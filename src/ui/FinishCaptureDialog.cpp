#include "ui/FinishCaptureDialog.h"

#include "organization/CategorySuggestions.h"
#include "ui/Messages.h"

#include <QCompleter>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QStringListModel>

namespace varnel {

FinishCaptureDialog::FinishCaptureDialog(const std::vector<FlowSummary>& summaries,
                                         const std::string& application,
                                         const std::string& category, QWidget* parent)
    : QDialog(parent), summaries_(summaries) {
    setWindowTitle(tr("Save Flow"));
    application_ = new QLineEdit(qs(application), this);
    application_->setPlaceholderText(tr("e.g. Acme"));
    application_->setCompleter(
        suggestionCompleter(qsList(CategorySuggestions::applications(summaries_)), this));
    category_ = new QLineEdit(qs(category), this);
    category_->setPlaceholderText(tr("e.g. Settings"));
    categoryCompleter_ = suggestionCompleter({}, this);
    category_->setCompleter(categoryCompleter_);
    name_ = new QLineEdit(this);
    name_->setPlaceholderText(tr("e.g. Booking a ride"));
    name_->setToolTip(tr("Left empty, the flow is named after the time it was captured."));

    auto* form = new QFormLayout(this);
    form->addRow(tr("Application:"), application_);
    form->addRow(tr("Category:"), category_);
    form->addRow(tr("Name:"), name_);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole)->setDefault(true);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);

    connect(application_, &QLineEdit::textChanged, this,
            &FinishCaptureDialog::updateCategorySuggestions);
    updateCategorySuggestions();
    name_->setFocus();
    setMinimumWidth(380);
}

std::string FinishCaptureDialog::application() const {
    return application_->text().toStdString();
}
std::string FinishCaptureDialog::category() const {
    return category_->text().toStdString();
}
std::string FinishCaptureDialog::name() const {
    return name_->text().toStdString();
}

void FinishCaptureDialog::updateCategorySuggestions() {
    auto* model = qobject_cast<QStringListModel*>(categoryCompleter_->model());
    model->setStringList(qsList(
        CategorySuggestions::categories(application_->text().trimmed().toStdString(), summaries_)));
}

} // namespace varnel
